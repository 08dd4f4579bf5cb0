#pragma once
// What a display server tells of the windows that are on the screen, one above the other.

#include "Linux/Desktop/FrontWindow.h"
#include "Linux/Desktop/Rectangles.h"

#include <optional>
#include <vector>

namespace mnemora::desktop {

/// A window on the screen, its frame included.
struct StackedWindow {
    /// Whose it is; `front.window` is 0 for one that the window manager has no part in, such as a
    /// menu or a notification.
    FrontWindow front;
    /// Everything that it may draw on.
    Rectangle place;
    /// What of `place` surely hides the windows below: all of it, unless parts are transparent or
    /// cut out.
    Area cover;
};

/// The windows on the screen, the lowest first.
struct WindowStack {
    std::vector<StackedWindow> windows;
    /// The one that has the focus; 0 where none has.
    std::uint32_t active = 0;
    /// False where the session doesn't tell where its windows are: each may show anywhere.
    bool arePlacesKnown = true;
};

} // namespace mnemora::desktop
