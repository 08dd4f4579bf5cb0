#pragma once
// Keeps what X knows of the window in front, on a thread of its own: a client that grabs the
// server, or a server that hangs, then costs the askers no more than the time they allow.

#include "Linux/Desktop/FrontWindow.h"
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

/// One reading of the display.
struct DisplayState {
    /// The window with the focus; absent when none has.
    std::optional<desktop::FrontWindow> front;
    /// The monitors are off or a screen saver covers them.
    bool isCovered = false;
    /// The windows that the window manager manages, where they were asked for.
    std::vector<desktop::WindowIdentity> clients;
    /// The windows on the screen, where they were asked for and could be listed.
    std::optional<desktop::WindowStack> stack;
    /// Grows whenever another window may have come to the front, appeared or gone.
    std::uint64_t changes = 0;
    /// When it was seen to grow last; the clock's beginning before that.
    std::chrono::steady_clock::time_point changedAt;
};

/// What a reading holds beside the window in front.
struct Wanted {
    bool clients = false;
    bool stack = false;
};

/// Any thread, unless said otherwise.
class FrontWindowWatcher {
  public:
    /// Connects to the display of the environment and starts the thread; null when there is no
    /// display, with the cause in `reason` where given. `changed` is called on the watcher's
    /// thread whenever another window may be in front.
    [[nodiscard]] static std::unique_ptr<FrontWindowWatcher> start(std::function<void()> changed,
                                                                   std::string* reason = nullptr);
    /// Ends the connection and the thread.
    ~FrontWindowWatcher();
    FrontWindowWatcher(const FrontWindowWatcher&) = delete;
    FrontWindowWatcher& operator=(const FrontWindowWatcher&) = delete;

    /// A reading that begins after the call; absent when it takes longer than `patience` or the
    /// server is gone.
    [[nodiscard]] std::optional<DisplayState> read(std::chrono::milliseconds patience,
                                                   Wanted wanted = {});
    /// The last reading, at once; empty once the server is gone.
    [[nodiscard]] DisplayState last() const;

  private:
    FrontWindowWatcher(std::unique_ptr<Connection> connection, FileDescriptor wakeUp,
                       std::function<void()> changed);
    void run();
    bool serve();
    void waitForWork();
    [[nodiscard]] DisplayState readNow(Wanted wanted);
    void countChanges(DisplayState& state);
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
    DisplayState last_;          // guarded by mutex_
    std::uint64_t asked_ = 0;    // guarded by mutex_
    std::uint64_t answered_ = 0; // guarded by mutex_
    Wanted wanted_;              // guarded by mutex_
    bool gone_ = false;          // guarded by mutex_
    bool ending_ = false;        // guarded by mutex_
    std::thread thread_;         // last: it uses all of the above
};

} // namespace mnemora::x11
