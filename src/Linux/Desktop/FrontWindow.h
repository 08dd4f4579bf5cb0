#pragma once
// What a display server tells of a window, before anybody has decided which application it is.

#include "Linux/Desktop/ProcessFacts.h"

#include <cstdint>
#include <optional>
#include <string>

namespace mnemora::desktop {

/// The marks by which a window's application can be recognised. Valid UTF-8, at most
/// maxMarkBytes each; empty where there is none. Any program may claim any of the first three.
struct WindowIdentity {
    /// The desktop entry that the window names itself (without ".desktop").
    std::string desktopId;
    /// The general class, as in "Google-chrome".
    std::string windowClass;
    /// The instance within the class, as in "teams.microsoft.com".
    std::string instance;
    ProcessFacts process;

    bool operator==(const WindowIdentity&) const = default;
};

/// The longest mark that is read of a window.
inline constexpr std::size_t maxMarkBytes = 256;

/// The window that has the focus.
struct FrontWindow {
    /// The display server's number for it; 0 where there is none.
    std::uint32_t window = 0;
    WindowIdentity identity;
    /// The title that the window manager shows; absent when the window has none.
    std::optional<std::string> title;

    bool operator==(const FrontWindow&) const = default;
};

} // namespace mnemora::desktop
