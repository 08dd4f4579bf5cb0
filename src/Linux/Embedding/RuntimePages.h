#pragma once
// What the runtime's libraries occupy in memory, of which loading needs far more than running.

namespace mnemora::embedding {

/// Gives the pages of the runtime's code and constants back; those still needed return from the
/// file when they are next read. Any thread.
void dropRuntimePages();

} // namespace mnemora::embedding
