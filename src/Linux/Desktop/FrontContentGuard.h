#pragma once
// Decides whether what is in front may be read, from everything that is known of the window.

#include "Linux/Accessibility/AccessibleWindows.h"
#include "Linux/Desktop/ApplicationCatalogue.h"
#include "Linux/Desktop/FrontWindow.h"
#include "Linux/Desktop/PrivateWindowMarkers.h"
#include "Linux/FrontWindowGuard.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

namespace mnemora::desktop {

/// What is known of the window in front when its content is about to be read.
struct FrontFacts {
    FrontWindow window;
    CataloguedApplication application;
    /// Absent when the program didn't answer in time or the accessibility bus is off.
    std::optional<atspi::WindowReading> reading;
};

/// The rules, apart from where the facts come from.
[[nodiscard]] bool mayBeRead(const FrontFacts& facts, PrivateWindowMarkers& markers);

/// Any thread but the main one.
class FrontContentGuard : public FrontWindowGuard {
  public:
    /// The window in front, read anew within the time; absent when there is none, when it can't be
    /// told in time, and while the screen is locked, off or another session's.
    using FreshFrontWindow = std::function<std::optional<FrontWindow>(std::chrono::milliseconds)>;

    FrontContentGuard(FreshFrontWindow front, std::shared_ptr<atspi::AccessibleWindows> windows,
                      std::shared_ptr<const ApplicationCatalogue> catalogue)
        : front_(std::move(front)), windows_(std::move(windows)), catalogue_(std::move(catalogue)) {
    }

    [[nodiscard]] bool contentMayBeRead() override;

  private:
    FreshFrontWindow front_;
    std::shared_ptr<atspi::AccessibleWindows> windows_;
    std::shared_ptr<const ApplicationCatalogue> catalogue_;
    PrivateWindowMarkers markers_;
};

} // namespace mnemora::desktop
