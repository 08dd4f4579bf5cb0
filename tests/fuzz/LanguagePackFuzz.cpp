// Fuzz target: a browser's string table, which lies in a folder that any program of the user may
// have written.

#include "Linux/Desktop/LanguagePack.h"
#include "Text/Encoding.h"
#include "fuzz/FuzzInput.h"

#include <sys/mman.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace mnemora;
    const FileDescriptor file(memfd_create("fuzz", MFD_CLOEXEC));
    fuzz::require(writeAll(file.get(), {reinterpret_cast<const char*>(data), size}));
    const auto pack = desktop::LanguagePack::open("/proc/self/fd/" + std::to_string(file.get()));
    if (!pack)
        return 0;
    for (const auto number : pack->numbers())
        if (const auto text = pack->string(number))
            fuzz::require(repairedUtf8(*text) == *text);
    return 0;
}
