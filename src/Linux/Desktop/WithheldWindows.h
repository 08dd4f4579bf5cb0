#pragma once
// Finds the windows beside or behind the one in front that must not be read, and where they show.

#include "Linux/Accessibility/AccessibleWindows.h"
#include "Linux/Desktop/ApplicationCatalogue.h"
#include "Linux/Desktop/PrivateWindowMarkers.h"
#include "Linux/Desktop/StackedWindow.h"
#include "Linux/WithheldRegions.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

namespace mnemora::desktop {

/// What is known of a window on the screen when the screen is about to be read.
struct StackedFacts {
    StackedWindow window;
    CataloguedApplication application;
    /// Absent where it wasn't asked for or did not come in time.
    std::optional<atspi::WindowReading> reading;
    bool isActive = false;
};

/// The rule, apart from where the facts come from: as for the window in front, except that the
/// accessibility bus doesn't say which of a process's names belongs to a window that isn't active.
/// Then every name that could be its own has to be an ordinary window's. A window that the window
/// manager has no part in is judged by application and title alone, unless its
/// process owns a withheld one.
[[nodiscard]] bool isWithheld(const StackedFacts& facts, PrivateWindowMarkers& markers);

/// The places in `withheld` (lowest first) and those of the windows that the window manager has no
/// part in, of the same processes: a menu or a hint of a withheld window tells what is in it.
[[nodiscard]] std::vector<std::size_t> withUnmanaged(const WindowStack& stack,
                                                     std::vector<std::size_t> withheld);

/// What of the stack's windows shows, of those at the places in `withheld` (lowest first).
[[nodiscard]] Area visibleArea(const WindowStack& stack, const std::vector<std::size_t>& withheld);

/// Any thread but the main one.
class WithheldWindows : public WithheldRegions {
  public:
    /// The windows on the screen, read anew within the time; absent when that takes longer, and
    /// while the screen is locked, off or another session's.
    using FreshStack = std::function<std::optional<WindowStack>(std::chrono::milliseconds)>;

    WithheldWindows(FreshStack stack, std::shared_ptr<atspi::AccessibleWindows> windows,
                    std::shared_ptr<const ApplicationCatalogue> catalogue)
        : stack_(std::move(stack)), windows_(std::move(windows)), catalogue_(std::move(catalogue)) {
    }

    [[nodiscard]] std::optional<Area> withheld() override;

  private:
    FreshStack stack_;
    std::shared_ptr<atspi::AccessibleWindows> windows_;
    std::shared_ptr<const ApplicationCatalogue> catalogue_;
    PrivateWindowMarkers markers_;
};

} // namespace mnemora::desktop
