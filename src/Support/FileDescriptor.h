#pragma once
// Owned file descriptors and the two loops around read and write that everybody needs.

#include <string_view>
#include <utility>

namespace mnemora {

/// Closes its descriptor when it goes. Movable, not copyable; -1 stands for none.
class FileDescriptor {
  public:
    FileDescriptor() = default;
    explicit FileDescriptor(int fd) : fd_(fd) {}
    FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        if (this != &other)
            reset(std::exchange(other.fd_, -1));
        return *this;
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor() { reset(); }

    [[nodiscard]] int get() const { return fd_; }
    [[nodiscard]] explicit operator bool() const { return fd_ >= 0; }
    /// Gives the descriptor away without closing it.
    [[nodiscard]] int release() { return std::exchange(fd_, -1); }
    /// Closes the held descriptor and takes the given one.
    void reset(int fd = -1);

  private:
    int fd_ = -1;
};

/// Writes every byte, going on after short writes and signals, also to a descriptor that somebody
/// set non-blocking: such a one is waited for, each time at most `patienceMs` (-1: as long as it
/// takes). False when the other end is gone, the device is full or patience ran out; some bytes
/// may have been written then.
[[nodiscard]] bool writeAll(int fd, std::string_view bytes, int patienceMs = -1);

/// Waits until a non-blocking descriptor has something to read, its end included.
void awaitReadable(int fd);

} // namespace mnemora
