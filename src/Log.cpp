#include "Log.h"

#include "Support/FileDescriptor.h"

#include <string>
#include <unistd.h>

namespace mnemora {
namespace {

/// A reader of our log that has stopped reading must not stop us for long.
constexpr int patienceMs = 200;

void writeLine(std::string_view prefix, std::string_view message) {
    std::string line;
    line.reserve(prefix.size() + message.size() + 1);
    line += prefix;
    for (const char c : message) {
        const auto byte = static_cast<unsigned char>(c);
        line += byte < 0x20 || byte == 0x7f ? ' ' : c;
    }
    line += '\n';
    // Nobody is left to tell when standard error itself fails.
    (void)writeAll(STDERR_FILENO, line, patienceMs);
}

} // namespace

void logInfo(std::string_view message) {
    writeLine("[mnemora] ", message);
}

void logError(std::string_view message) {
    writeLine("[mnemora][error] ", message);
}

} // namespace mnemora
