#pragma once
// On which display server the program's own windows live. In a Wayland session that is the X
// server inside it: only there can a card lie on top without the focus, and a window choose its
// place. One process has one platform, so all windows go there.

#include <optional>
#include <string>

namespace mnemora::desktop {

/// The toolkit's names of the platforms to use, the first one that works counting; absent without
/// any display, with the cause in `reason`. Asks the servers themselves, before any object of the
/// toolkit exists, since the toolkit ends the process when it finds none.
[[nodiscard]] std::optional<std::string> windowPlatform(std::string& reason);

/// Says in one log line what `platform`, the one that the toolkit took, means for the program's
/// windows; nothing where it is the X server.
void explainPlatform(const std::string& platform);

} // namespace mnemora::desktop
