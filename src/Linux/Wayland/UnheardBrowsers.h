#pragma once
// Browsers that run in this session although nobody tells of their windows, one of which may be
// private. Needed only where the compositor lists none.

#include <set>
#include <string>

namespace mnemora::wayland {

/// Whether a process of this user is a browser's by its executable, and that isn't among `heard`
/// (full paths). Reads one link for each process; any thread.
[[nodiscard]] bool runsUnheardBrowser(const std::set<std::string>& heard);

} // namespace mnemora::wayland
