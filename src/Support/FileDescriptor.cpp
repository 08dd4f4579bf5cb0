#include "Support/FileDescriptor.h"

#include <cerrno>
#include <poll.h>
#include <unistd.h>

namespace mnemora {

namespace {

bool waitFor(int fd, short event, int patienceMs) {
    pollfd waiting{.fd = fd, .events = event, .revents = 0};
    const int ready = poll(&waiting, 1, patienceMs);
    return ready > 0 || (ready < 0 && errno == EINTR);
}

} // namespace

void FileDescriptor::reset(int fd) {
    if (fd_ >= 0)
        close(fd_);
    fd_ = fd;
}

bool writeAll(int fd, std::string_view bytes, int patienceMs) {
    while (!bytes.empty()) {
        const ssize_t written = write(fd, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0 && errno == EAGAIN && waitFor(fd, POLLOUT, patienceMs))
            continue;
        if (written <= 0)
            return false;
        bytes.remove_prefix(static_cast<size_t>(written));
    }
    return true;
}

void awaitReadable(int fd) {
    (void)waitFor(fd, POLLIN, -1);
}

} // namespace mnemora
