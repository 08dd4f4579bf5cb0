#pragma once
// The child process of speech recognition.

#include <filesystem>

namespace mnemora::engines {

/// Loads the model in `model`, locks the process in and recognises sound from `socket` until the
/// other end closes it. Returns the exit status. The process is used for nothing else.
[[nodiscard]] int runSpeech(int socket, const std::filesystem::path& model);

} // namespace mnemora::engines
