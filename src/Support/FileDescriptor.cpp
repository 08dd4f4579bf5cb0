#include "Support/FileDescriptor.h"

#include <cerrno>
#include <unistd.h>

namespace mnemora {

void FileDescriptor::reset(int fd) {
    if (fd_ >= 0)
        close(fd_);
    fd_ = fd;
}

bool writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = write(fd, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        bytes.remove_prefix(static_cast<size_t>(written));
    }
    return true;
}

} // namespace mnemora
