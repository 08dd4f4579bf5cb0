#pragma once
// The running applications and the one in front, from what this session's source of windows says.

#include "Linux/Desktop/WindowSource.h"
#include "Platform/MainLoop.h"
#include "Platform/Workspace.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace mnemora::desktop {

class ApplicationCatalogue;
class SessionState;

/// Main thread, where a server that is held or hangs costs 15 ms once, not for each question in a
/// row. Window titles change too often for that; they are read when asked for.
class DesktopWorkspace : public Workspace, public std::enable_shared_from_this<DesktopWorkspace> {
  public:
    /// What opens one of our own settings pages; true when the address was one of them.
    using SettingsOpener = std::function<bool(const std::string& address)>;

    /// Starts the source; it calls `changed` on any thread whenever another window may be in
    /// front. Null where there is nothing to read.
    using StartSource = std::function<std::unique_ptr<WindowSource>(std::function<void()> changed)>;

    /// Null when the source can't be started. The session state may be null where nobody knows it.
    [[nodiscard]] static std::shared_ptr<DesktopWorkspace>
    create(std::shared_ptr<MainLoop> mainLoop,
           std::shared_ptr<const ApplicationCatalogue> catalogue,
           std::shared_ptr<const SessionState> session, const StartSource& start);
    ~DesktopWorkspace() override;

    [[nodiscard]] std::optional<RunningApplication> frontmostApplication() override;
    [[nodiscard]] std::unique_ptr<Observation> observeActivation(
        std::function<void(const std::optional<RunningApplication>&)> activated) override;
    [[nodiscard]] std::vector<RunningApplication>
    runningApplications(const std::string& bundleIdentifier) override;
    bool open(const std::string& address) override;

    /// Settings addresses open nothing until this is given.
    void setSettingsOpener(SettingsOpener opener) { openSettings_ = std::move(opener); }
    /// The frontmost application by the last reading, at once. Any thread.
    [[nodiscard]] std::optional<RunningApplication> lastFrontmostApplication() const;
    /// The window in front by the last reading, at once. Any thread.
    [[nodiscard]] std::optional<FrontWindow> lastFrontWindow() const;
    /// The window in front, read anew; absent also where that takes longer than `patience` and
    /// while nobody can see it. Any thread.
    [[nodiscard]] std::optional<FrontWindow>
    freshFrontWindow(std::chrono::milliseconds patience) const;
    /// The windows on the screen, read anew; absent likewise. Any thread.
    [[nodiscard]] std::optional<WindowStack> freshStack(std::chrono::milliseconds patience) const;
    /// The same, once what the screen shows is those windows: absent shortly after a change, when
    /// programs haven't yet painted over the ones that went away, and shortly after the window in
    /// front had a title that is withheld. Any thread.
    [[nodiscard]] std::optional<WindowStack> settledStack(std::chrono::milliseconds patience) const;
    /// A number that grows whenever another window may have come to the front, appeared or gone,
    /// as of the last reading. Any thread.
    [[nodiscard]] std::uint64_t windowChanges() const;
    /// When that last grew, likewise.
    [[nodiscard]] std::chrono::steady_clock::time_point windowsChangedAt() const;

  private:
    struct Observers;

    DesktopWorkspace(std::shared_ptr<MainLoop> mainLoop,
                     std::shared_ptr<const ApplicationCatalogue> catalogue,
                     std::shared_ptr<const SessionState> session);
    [[nodiscard]] RunningApplication application(const WindowIdentity& identity) const;
    [[nodiscard]] std::optional<RunningApplication> frontOf(const DisplayState& state) const;
    [[nodiscard]] bool isVisible(const DisplayState& state) const;
    [[nodiscard]] DisplayState freshOrLast(Wanted wanted);
    void activeWindowChanged();
    void tell(const RunningApplication& application);

    std::shared_ptr<MainLoop> mainLoop_;
    std::shared_ptr<const ApplicationCatalogue> catalogue_;
    std::shared_ptr<const SessionState> session_;
    std::shared_ptr<WindowSource> source_;
    SettingsOpener openSettings_;
    std::shared_ptr<Observers> observers_;
    std::optional<RunningApplication> announced_; // the one that observers heard of last
    std::unique_ptr<Timer> absence_;              // runs while no window has the focus
    std::optional<std::chrono::steady_clock::time_point>
        lateAt_; // when the server last was too slow
};

} // namespace mnemora::desktop
