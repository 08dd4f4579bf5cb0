#pragma once
// What an engine that can't work says before it ends.

#include "Engines/Channel.h"

#include <cstdlib>
#include <string>

namespace mnemora::engines {

/// Tells the parent why; returns the process's exit status.
[[nodiscard]] inline int refuse(int socket, const std::string& reason) {
    (void)sendFrame(socket, FrameKind::unavailable, reason, -1, std::nullopt);
    return EXIT_FAILURE;
}

} // namespace mnemora::engines
