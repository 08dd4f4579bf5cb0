#include "Linux/Engines/SealedPicture.h"

#include <fcntl.h>
#include <string_view>
#include <sys/mman.h>

namespace mnemora {

FileDescriptor sealedPicture(const Image& image) {
    FileDescriptor file(memfd_create("mnemora-picture", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    const std::string_view bytes(reinterpret_cast<const char*>(image.pixels->data()),
                                 static_cast<std::size_t>(image.height) * image.stride);
    if (!file || !writeAll(file.get(), bytes) ||
        fcntl(file.get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL) !=
            0)
        return {};
    return file;
}

} // namespace mnemora
