#include "Linux/Browsers/PeerProcess.h"

#include <string>
#include <string_view>
#include <sys/socket.h>

namespace mnemora::browsers {

std::optional<PeerProcess> peerOf(int socket) {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 || peer.pid <= 0)
        return std::nullopt;
    return PeerProcess{.process = peer.pid, .user = peer.uid};
}

std::filesystem::path executableOf(pid_t process) {
    std::error_code failed;
    std::string path =
        std::filesystem::read_symlink("/proc/" + std::to_string(process) + "/exe", failed).string();
    constexpr std::string_view replaced = " (deleted)"; // proc(5)
    if (path.ends_with(replaced))
        path.resize(path.size() - replaced.size());
    return path;
}

} // namespace mnemora::browsers
