#pragma once
// What a Firefox was told in its settings about what it keeps.

#include <optional>

namespace mnemora::desktop {

/// Whether a process of the Firefox family is set to never remember history
/// ("browser.privatebrowsing.autostart"): all its windows are private then, and none says so in
/// its title. True as well where none of the profiles that it holds can be read, as while it
/// starts. Absent for every other program. A setting that an administrator's policy makes isn't
/// seen. Any thread; reads a few files.
[[nodiscard]] std::optional<bool> neverRemembersHistory(int processIdentifier);

} // namespace mnemora::desktop
