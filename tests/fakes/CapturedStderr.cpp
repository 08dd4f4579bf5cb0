#include "fakes/CapturedStderr.h"

#include <array>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace mnemora::test {

CapturedStderr::CapturedStderr()
    : former_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)),
      file_(memfd_create("stderr", MFD_CLOEXEC)) {
    dup2(file_.get(), STDERR_FILENO);
}

CapturedStderr::~CapturedStderr() {
    dup2(former_.get(), STDERR_FILENO);
}

std::string CapturedStderr::text() const {
    std::string all;
    std::array<char, 4096> chunk{};
    off_t at = 0;
    for (ssize_t size = 0; (size = pread(file_.get(), chunk.data(), chunk.size(), at)) > 0;
         at += size)
        all.append(chunk.data(), static_cast<size_t>(size));
    return all;
}

} // namespace mnemora::test
