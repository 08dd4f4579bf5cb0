#pragma once
// What of the screen is private although the window in front isn't.

#include "Linux/Desktop/Rectangles.h"

#include <optional>

namespace mnemora {

/// Asked by the screen adapters right before and right after they take a picture.
struct WithheldRegions {
    virtual ~WithheldRegions() = default;

    /// The parts of the screen in which a window shows that must not be read, in pixels of the
    /// whole screen; they may overlap. Absent when that can't be established in time, when there is
    /// such a window and the session doesn't tell where, and when nobody may see the screen. Asks
    /// the desktop anew; any thread but the main one; answers within 100 ms.
    [[nodiscard]] virtual std::optional<desktop::Area> withheld() = 0;
};

} // namespace mnemora
