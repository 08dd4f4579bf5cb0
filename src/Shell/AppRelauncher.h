#pragma once
// Ends the program and starts it again, for what only a new process can get.

#include <string>
#include <string_view>

namespace mnemora {

/// Namespace-like holder without state. Main thread.
struct AppRelauncher {
    AppRelauncher() = delete;

    /// Starts a detached shell that waits a second and then starts a new instance, and asks the
    /// program to end. It ends in every case; where the shell can't be started nothing follows.
    static void relaunch();

    /// The shell's command text for an instance started from `bundlePath`.
    [[nodiscard]] static std::string command(std::string_view bundlePath);
};

/// A text as one word of a POSIX shell's command line, whatever characters it holds; NUL, which no
/// command line can hold, ends it. (POSIX.1-2017, Shell Command Language, 2.2.2)
[[nodiscard]] std::string shellQuoted(std::string_view text);

} // namespace mnemora
