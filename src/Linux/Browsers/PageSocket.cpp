#include "Linux/Browsers/PageSocket.h"

#include "Linux/Browsers/PeerProcess.h"
#include "Support/UserFolders.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace mnemora::browsers {
namespace {

constexpr int waitingPeers = 8;

std::optional<sockaddr_un> addressOf(const std::filesystem::path& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.native().size() >= sizeof address.sun_path)
        return std::nullopt;
    std::memcpy(address.sun_path, path.c_str(), path.native().size());
    return address;
}

FileDescriptor newSocket(int flags = 0) {
    return FileDescriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
}

template <class Call>
bool callWith(Call call, int socket, const sockaddr_un& address) {
    return call(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

/// Whether the other end is a process of this user with that executable.
bool runs(int peer, const std::filesystem::path& program) {
    const auto process = peerOf(peer);
    return process && process->user == geteuid() && !program.empty() &&
           executableOf(process->process) == program;
}

} // namespace

std::filesystem::path pageSocketPath() {
    const auto folder = userFolders::runtime();
    return folder.empty() ? folder : folder / "pages.sock";
}

std::optional<PageSocket> PageSocket::listen(const std::filesystem::path& path) {
    // Bound under a name of its own and moved into place: peers find either the former socket or
    // one that already listens.
    auto own = path;
    own += "." + std::to_string(getpid());
    const auto address = addressOf(own);
    if (!address || !userFolders::makePrivate(path.parent_path()))
        return std::nullopt;
    unlink(own.c_str());
    auto socket = newSocket(SOCK_NONBLOCK);
    struct stat info {};
    if (!socket || !callWith(::bind, socket.get(), *address) || chmod(own.c_str(), 0600) != 0 ||
        ::listen(socket.get(), waitingPeers) != 0 || stat(own.c_str(), &info) != 0 ||
        std::rename(own.c_str(), path.c_str()) != 0) {
        unlink(own.c_str());
        return std::nullopt;
    }
    return PageSocket(std::move(socket), path, info.st_ino);
}

PageSocket::~PageSocket() {
    struct stat info {};
    if (socket_ && lstat(path_.c_str(), &info) == 0 && info.st_ino == inode_)
        unlink(path_.c_str());
}

FileDescriptor PageSocket::accept(const std::filesystem::path& program) const {
    FileDescriptor peer(accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    return peer && runs(peer.get(), program) ? std::move(peer) : FileDescriptor();
}

FileDescriptor connectToPageSocket(const std::filesystem::path& path,
                                   const std::filesystem::path& program) {
    const auto address = addressOf(path);
    auto socket = address ? newSocket() : FileDescriptor();
    if (!socket || !callWith(::connect, socket.get(), *address))
        return {};
    return runs(socket.get(), program) ? std::move(socket) : FileDescriptor();
}

} // namespace mnemora::browsers
