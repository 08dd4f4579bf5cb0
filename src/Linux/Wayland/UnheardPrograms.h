#pragma once
// Browsers, password managers and the like that run in this session although nobody tells of their
// windows, one of which may be private. Needed only where the compositor lists none.

#include <set>
#include <string>

namespace mnemora::wayland {

/// Whether a process of this user is by its executable a browser's or of an application whose
/// content is never read, and that isn't among `heard` (full paths). Services that run all the time
/// and only now and then ask for a password don't count. Reads one link for each process; any
/// thread.
[[nodiscard]] bool runsUnheardProgram(const std::set<std::string>& heard);

} // namespace mnemora::wayland
