#pragma once
// Who is at the other end of a local socket, as the kernel tells it.

#include <filesystem>
#include <optional>
#include <sys/types.h>

namespace mnemora::browsers {

struct PeerProcess {
    pid_t process = 0;
    uid_t user = 0;
};

/// The process that connected or listens, as of that moment (SO_PEERCRED, unix(7)); absent when
/// the descriptor is no connected local socket.
[[nodiscard]] std::optional<PeerProcess> peerOf(int socket);

/// The executable of a process; empty when it has ended or is none of the user's. A program
/// replaced by an update still counts under its former path.
[[nodiscard]] std::filesystem::path executableOf(pid_t process);

} // namespace mnemora::browsers
