#include "Log.h"

#include "Support/FileDescriptor.h"

#include <string>
#include <unistd.h>

namespace mnemora {
namespace {

/// A reader of our log that has stopped reading must not stop us for long.
constexpr int patienceMs = 200;

/// How many bytes the character takes that stands first in the text when it commands a terminal or
/// breaks a line; 0 for any other one. Terminals obey U+0080 to U+009F too, C2 80 to C2 9F in
/// UTF-8; U+2028 and U+2029 break lines, and U+202A to U+202E and U+2066 to U+2069 turn what
/// follows round (UAX #9), E2 80 A8 to AE and E2 81 A6 to A9.
std::size_t controlLength(std::string_view text) {
    const auto byteAt = [text](std::size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
    };
    if (byteAt(0) < 0x20 || byteAt(0) == 0x7f)
        return 1;
    if (byteAt(0) == 0xc2)
        return byteAt(1) >= 0x80 && byteAt(1) < 0xa0 ? 2 : 0;
    const bool breaksOrEmbeds = byteAt(1) == 0x80 && byteAt(2) >= 0xa8 && byteAt(2) <= 0xae;
    const bool isolates = byteAt(1) == 0x81 && byteAt(2) >= 0xa6 && byteAt(2) <= 0xa9;
    return byteAt(0) == 0xe2 && (breaksOrEmbeds || isolates) ? 3 : 0;
}

void writeLine(std::string_view prefix, std::string_view message) {
    std::string line;
    line.reserve(prefix.size() + message.size() + 1);
    line += prefix;
    while (!message.empty()) {
        const auto control = controlLength(message);
        line += control > 0 ? ' ' : message.front();
        message.remove_prefix(control > 0 ? control : 1);
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
