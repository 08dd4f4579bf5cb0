#pragma once
// Where the program learns which window is in front and which ones there are: the X server in an
// X11 session, several sources together in a Wayland session.

#include "Linux/Desktop/FrontWindow.h"
#include "Linux/Desktop/StackedWindow.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace mnemora::desktop {

/// A title that the window in front had before.
struct FormerTitle {
    std::string title;
    std::chrono::steady_clock::time_point until;
};

/// One reading of the display.
struct DisplayState {
    /// The window with the focus; absent when none has, or when that can't be told.
    std::optional<FrontWindow> front;
    /// Nobody can see the windows: the monitors are off, a screen saver covers them, the user has
    /// been away for long.
    bool isCovered = false;
    /// The windows that there are, where they were asked for.
    std::vector<WindowIdentity> clients;
    /// The windows on the screen, where they were asked for and could be listed.
    std::optional<WindowStack> stack;
    /// Grows whenever another window may have come to the front, appeared or gone.
    std::uint64_t changes = 0;
    /// When it was seen to grow last; the clock's beginning before that.
    std::chrono::steady_clock::time_point changedAt;
    /// The titles that the window in front lost lately, where the session tells: of the last
    /// second, the newest 16.
    std::vector<FormerTitle> formerTitles;
};

/// What a reading holds beside the window in front.
struct Wanted {
    bool clients = false;
    bool stack = false;
};

/// Abstract so that a session is read by what it offers; any thread.
struct WindowSource {
    virtual ~WindowSource() = default;

    /// A reading that begins after the call; absent when it takes longer than `patience` or there
    /// is nothing to read any more.
    [[nodiscard]] virtual std::optional<DisplayState> read(std::chrono::milliseconds patience,
                                                           Wanted wanted = {}) = 0;
    /// The last reading, at once; empty once there is nothing to read.
    [[nodiscard]] virtual DisplayState last() const = 0;
};

} // namespace mnemora::desktop
