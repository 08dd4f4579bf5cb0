#include "Linux/Desktop/WindowPlatform.h"

#include "Linux/Wayland/Connection.h"
#include "Linux/X11/Connection.h"
#include "Log.h"

namespace mnemora::desktop {

std::optional<std::string> windowPlatform(std::string& reason) {
    if (x11::Connection::open(&reason))
        return "xcb";
    if (!wayland::isWaylandSession() || !wayland::Connection::open(&reason))
        return std::nullopt;
    // The second where the toolkit's module for Wayland isn't installed.
    return "wayland;offscreen";
}

void explainPlatform(const std::string& platform) {
    if (platform == "wayland")
        logInfo("no X server in this session: windows lie where the compositor puts them, and "
                "cards aren't shown");
    else if (platform != "xcb")
        logError("no X server in this session and no Qt module for Wayland (qt6-wayland): capture "
                 "runs without windows and cards");
}

} // namespace mnemora::desktop
