#pragma once
// What a Firefox was told in its settings about what it keeps.

namespace mnemora::desktop {

/// Whether the process is one of the Firefox family that is set to never remember history
/// ("browser.privatebrowsing.autostart"): all its windows are private then, and none says so in
/// its title. False for every other program, and where its profile can't be found. A setting that
/// an administrator's policy makes isn't seen. Any thread; reads a few files.
[[nodiscard]] bool neverRemembersHistory(int processIdentifier);

} // namespace mnemora::desktop
