#pragma once
// Whether the system may write the memory of this process down when it crashes (core(5)).

namespace mnemora::coreFiles {

/// Neither a core file nor a dump to a handler program holds any of this process's memory from now
/// on, which would be what its user reads. Programs that it starts inherit that. Call once, before
/// the first thread.
void forbid();

/// Gives back what held before `forbid`, to a process that is about to become another program.
/// Async-signal-safe, for use between fork and exec.
void allowAgain();

} // namespace mnemora::coreFiles
