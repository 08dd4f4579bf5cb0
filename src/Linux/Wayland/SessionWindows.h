#pragma once
// The windows of a Wayland session, from everything that this session offers.

#include "Linux/Accessibility/AccessibleWindows.h"
#include "Linux/Desktop/ApplicationCatalogue.h"
#include "Linux/Desktop/WindowSource.h"
#include "Linux/Wayland/CompositorWatcher.h"
#include "Linux/Wayland/KWinWindows.h"
#include "Linux/Wayland/WindowMerge.h"
#include "Linux/X11/FrontWindowWatcher.h"

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace mnemora::wayland {

/// Any thread.
class SessionWindows final : public desktop::WindowSource {
  public:
    struct Options {
        std::shared_ptr<atspi::AccessibleWindows> accessible;
        std::shared_ptr<const desktop::ApplicationCatalogue> catalogue;
        /// Where a window manager of KDE is listened to; outlives the windows. Null for nowhere.
        desktop::GLibThread* listener = nullptr;
        /// As DesktopWorkspace::StartSource takes it.
        std::function<void()> changed = {};
        std::chrono::milliseconds idleAfter = CompositorWatcher::Options().idleAfter;
    };

    /// Connects to what there is; waits at most a second for the compositor.
    explicit SessionWindows(Options options);
    ~SessionWindows() override;
    SessionWindows(const SessionWindows&) = delete;
    SessionWindows& operator=(const SessionWindows&) = delete;

    [[nodiscard]] std::optional<desktop::DisplayState> read(std::chrono::milliseconds patience,
                                                            desktop::Wanted wanted = {}) override;
    [[nodiscard]] desktop::DisplayState last() const override;

  private:
    [[nodiscard]] bool addKWin(CompositorState& compositor,
                               const std::optional<KWinState>& kwin) const;
    [[nodiscard]] desktop::DisplayState merged(const CompositorState& compositor,
                                               desktop::DisplayState server,
                                               atspi::AccessiblePrograms programs,
                                               desktop::Wanted wanted) const;

    const Options options_;
    const WindowMerge merge_;
    mutable std::mutex mutex_;
    mutable std::vector<desktop::WindowIdentity> clients_; // as last read; guarded by mutex_
    std::unique_ptr<x11::FrontWindowWatcher> server_;      // null without an X server
    std::unique_ptr<KWinWindows> kwin_;                    // null without a listener
    CompositorWatcher compositor_;
};

} // namespace mnemora::wayland
