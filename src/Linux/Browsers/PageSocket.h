#pragma once
// The local socket on which host programs offer the pages of their browsers.

#include "Support/FileDescriptor.h"

#include <filesystem>
#include <optional>
#include <sys/types.h>

namespace mnemora::browsers {

/// Where the application listens: pages.sock in the user's runtime folder; empty without one.
[[nodiscard]] std::filesystem::path pageSocketPath();

/// The listening end. One thread.
class PageSocket {
  public:
    /// Listens at `path`, whose folder is made private first; a socket left there by another
    /// process is replaced. Absent when the folder isn't the user's or the path is too long.
    [[nodiscard]] static std::optional<PageSocket> listen(const std::filesystem::path& path);
    PageSocket(PageSocket&&) = default;
    PageSocket& operator=(PageSocket&&) = delete;
    /// Removes the socket, unless another process has put its own in that place.
    ~PageSocket();

    [[nodiscard]] int get() const { return socket_.get(); }
    /// The next waiting peer, non-blocking, if it is a process of this user running `program`.
    /// Others are hung up on. Absent when nobody acceptable waits.
    [[nodiscard]] FileDescriptor accept(const std::filesystem::path& program) const;

  private:
    PageSocket(FileDescriptor socket, std::filesystem::path path, ino_t inode)
        : socket_(std::move(socket)), path_(std::move(path)), inode_(inode) {}

    FileDescriptor socket_;
    std::filesystem::path path_;
    ino_t inode_;
};

/// Connects to the application listening at `path`. Absent when nobody listens there, or not a
/// process of this user running `program` (a resolved path): pages are for the application alone.
[[nodiscard]] FileDescriptor connectToPageSocket(const std::filesystem::path& path,
                                                 const std::filesystem::path& program);

} // namespace mnemora::browsers
