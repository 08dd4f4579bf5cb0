#pragma once
// What an engine's process does to itself: it works behind everybody else or only when nobody else
// wants the processor, ends with its parent, and, once its weights are loaded, gives up everything
// but calculating and answering. The engines are large native code fed with whatever is on screen
// or on the line.

#include <optional>
#include <string>

namespace mnemora::engines {

/// How much of the processor an engine gets while others want it too.
enum class Share {
    leftOver, ///< nothing: the idle scheduling class, else the lowest priority
    little,   ///< a few nice levels behind the user's programs: somebody waits for the answer
};

/// Lowers the priority; no core dumps, no debugger of the same user, at most 2.5 GiB of memory of
/// its own, an end by SIGKILL when the thread that started this process ends. Called first, before
/// any thread exists.
void enterBackground(Share share);

/// Takes away, from all threads of the process and for good: opening or changing any file, every
/// kind of socket, starting programs, signalling or inspecting other processes. What is left is
/// memory, threads, time, and reading and writing `keep`, the only descriptor above standard error
/// that stays open. Returns why that could not be done; absent means that it was.
///
/// The kernel's system-call filter (seccomp(2)) does all of it. Where Landlock exists (Linux 5.13)
/// it denies files to the calling thread a second time.
[[nodiscard]] std::optional<std::string> lockIn(int keep);

} // namespace mnemora::engines
