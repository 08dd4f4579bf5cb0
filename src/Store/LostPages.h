#pragma once
// A database that somebody else cuts short while its pages are mapped here: touching a page behind
// the new end raises SIGBUS (mmap(2)), which must not end a program that runs all day. The lost
// pages then read as zeros, which SQLite takes for a damaged file, nothing is committed any more
// over that connection, and its owner opens the file anew. Internal to the store.

#include <filesystem>

namespace mnemora {

/// From now on, for the whole process and the existing file named last, which may be reached by
/// links. A SIGBUS of any other origin goes where it went before.
void surviveLostPages(const std::filesystem::path& database);

/// Whether this thread has touched a lost page since the last `forgetLostPages`.
[[nodiscard]] bool hasLostPages();
void forgetLostPages();

} // namespace mnemora
