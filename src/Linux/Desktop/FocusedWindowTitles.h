#pragma once
// The title of the focused window from the two sources that know one: the accessibility bus and
// the window manager.

#include "Linux/Accessibility/AccessibleWindows.h"
#include "Linux/Desktop/ApplicationCatalogue.h"
#include "Linux/Desktop/FrontWindow.h"
#include "Platform/Accessibility.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace mnemora::desktop {

/// The title to use where `accessible` is the accessible name and `shown` the window manager's
/// title: for a Chromium-family window the accessible name only, and only when it belongs to the
/// window that shows the other title; for others the one that the privacy filter withholds, else
/// the accessible name, else the shown title.
[[nodiscard]] std::optional<std::string> chosenTitle(Browser browser,
                                                     const std::optional<std::string>& accessible,
                                                     const std::optional<std::string>& shown);

/// Whether a Chromium-family window with this accessible name can be the one that shows this
/// title: one process may have an ordinary and a private window, and the two sources change at
/// different moments.
[[nodiscard]] bool belongTogether(const std::string& accessible,
                                  const std::optional<std::string>& shown);

/// Of a name heard earlier what still counts beside the title shown now: nothing unless the two
/// belong together. The window may have moved on since, or the process be another one.
[[nodiscard]] std::optional<std::string> stillTrue(std::optional<std::string> heard,
                                                   const std::optional<std::string>& shown);

/// At most 4096 bytes of the title: a longer one loses its middle, since browsers put their own
/// words last. Stays valid UTF-8.
[[nodiscard]] std::string shortenedTitle(std::string title);

/// Main thread; waits at most 25 ms for the program itself, then answers from what was last heard.
class FocusedWindowTitles : public Accessibility {
  public:
    /// What the window manager last said of the window in front.
    using FrontWindowSource = std::function<std::optional<FrontWindow>()>;

    FocusedWindowTitles(std::shared_ptr<atspi::AccessibleWindows> windows,
                        std::shared_ptr<const ApplicationCatalogue> catalogue,
                        FrontWindowSource front)
        : windows_(std::move(windows)), catalogue_(std::move(catalogue)), front_(std::move(front)) {
    }

    [[nodiscard]] bool isProcessTrusted() override;
    /// Without trust, the window manager's title of windows that are no browser's.
    [[nodiscard]] std::optional<FocusedWindow> focusedWindow(int processIdentifier) override;

  private:
    std::shared_ptr<atspi::AccessibleWindows> windows_;
    std::shared_ptr<const ApplicationCatalogue> catalogue_;
    FrontWindowSource front_;
};

} // namespace mnemora::desktop
