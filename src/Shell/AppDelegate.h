#pragma once
// What the desktop application does when it has started: it owns the parts that run all day and
// the status menu.

#include "Platform/StatusItem.h"

#include <functional>
#include <memory>

namespace mnemora {

class ActivitySampler;
class MeetingCoordinator;
class MnemoraStore;
class NudgeController;

/// The windows that the menu opens; an empty function stands for a window that isn't there.
struct ShellWindows {
    std::function<void(MnemoraStore&)> showMeetings;
    std::function<void()> showOnboarding;
};

/// Main thread.
class AppDelegate {
  public:
    /// `store` outlives the delegate.
    AppDelegate(MnemoraStore& store, ShellWindows windows);
    ~AppDelegate();
    AppDelegate(const AppDelegate&) = delete;
    AppDelegate& operator=(const AppDelegate&) = delete;

    /// Puts the icon up, starts capture, nudges and the watch for calls, and opens the set-up
    /// window when a permission is missing. Called once, when the main loop is about to run and
    /// the services are installed.
    void applicationDidFinishLaunching();
    /// Opens the status menu near the pointer.
    void showMenu();
    /// The status menu as it is now. Waits for the store.
    [[nodiscard]] Menu menuNeedsUpdate();

  private:
    void setupStatusItem();
    void toggleRecording();
    void openMeetings();
    void openOnboarding();
    static void quit();

    MnemoraStore& store_;
    ShellWindows windows_;
    // null before launching has finished:
    std::shared_ptr<ActivitySampler> sampler_;
    std::unique_ptr<StatusItem> statusItem_;
    std::shared_ptr<NudgeController> nudges_;
    std::shared_ptr<MeetingCoordinator> meetings_;
};

} // namespace mnemora
