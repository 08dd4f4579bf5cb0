#pragma once
// Keeps what X knows of the window in front, on a thread of its own: a client that grabs the
// server, or a server that hangs, then costs the askers no more than the time they allow.

#include "Linux/Desktop/WindowSource.h"
#include "Linux/X11/Connection.h"
#include "Support/FileDescriptor.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace mnemora::x11 {

/// Any thread, unless said otherwise.
class FrontWindowWatcher final : public desktop::WindowSource {
  public:
    /// Connects to the display of the environment and starts the thread; null when there is no
    /// display, with the cause in `reason` where given. `changed` is called on the watcher's
    /// thread whenever another window may be in front.
    [[nodiscard]] static std::unique_ptr<FrontWindowWatcher> start(std::function<void()> changed,
                                                                   std::string* reason = nullptr);
    /// Ends the connection and the thread.
    ~FrontWindowWatcher() override;
    FrontWindowWatcher(const FrontWindowWatcher&) = delete;
    FrontWindowWatcher& operator=(const FrontWindowWatcher&) = delete;

    [[nodiscard]] std::optional<desktop::DisplayState> read(std::chrono::milliseconds patience,
                                                            desktop::Wanted wanted = {}) override;
    [[nodiscard]] desktop::DisplayState last() const override;

  private:
    FrontWindowWatcher(std::unique_ptr<Connection> connection, FileDescriptor wakeUp,
                       std::function<void()> changed);
    void run();
    bool serve();
    void waitForWork();
    [[nodiscard]] desktop::DisplayState readNow(desktop::Wanted wanted);
    [[nodiscard]] desktop::DisplayState withTitleOfNow() const;
    void countChanges(desktop::DisplayState& state);
    void keepFormerTitles(desktop::DisplayState& state) const; // with mutex_ held
    [[nodiscard]] std::optional<desktop::WindowIdentity> identity(Window window);
    void wake() const;

    const std::unique_ptr<Connection> connection_; // used by the thread only
    const FileDescriptor wakeUp_;
    const std::function<void()> changed_;
    std::map<Window, desktop::WindowIdentity> known_; // used by the thread only
    bool noticed_ = false;                            // used by the thread only
    std::uint64_t changes_ = 0;                       // used by the thread only
    std::chrono::steady_clock::time_point changedAt_; // used by the thread only

    mutable std::mutex mutex_;
    std::condition_variable served_;
    desktop::DisplayState last_; // guarded by mutex_
    std::uint64_t asked_ = 0;    // guarded by mutex_
    std::uint64_t answered_ = 0; // guarded by mutex_
    desktop::Wanted wanted_;     // guarded by mutex_
    int stackAwaited_ = 0;       // guarded by mutex_: askers in read() that want the stack
    bool gone_ = false;          // guarded by mutex_
    bool ending_ = false;        // guarded by mutex_
    std::thread thread_;         // last: it uses all of the above
};

} // namespace mnemora::x11
