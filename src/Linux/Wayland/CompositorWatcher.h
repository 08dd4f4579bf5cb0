#pragma once
// Keeps what the compositor tells of its windows and of the user's presence, on a thread of its
// own. A compositor that goes away, or isn't there yet, costs one log line; it is looked for again
// until it is back.

#include "Linux/Wayland/Connection.h"
#include "Linux/Wayland/ListedWindow.h"
#include "Support/FileDescriptor.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace mnemora::wayland {

class Presence;
class Toplevels;

/// One reading of the compositor.
struct CompositorState {
    /// The compositor is there.
    bool isConnected = false;
    /// All windows; absent where the compositor lists none for others.
    std::optional<std::vector<ListedWindow>> windows = {};
    /// Nobody looks at the session (see Presence).
    bool isAway = false;
    /// Grows whenever a window may have come to the front, appeared or gone.
    std::uint64_t changes = 0;
    /// When it was seen to grow last; the clock's beginning before that.
    std::chrono::steady_clock::time_point changedAt = {};

    bool operator==(const CompositorState&) const = default;
};

/// Any thread.
class CompositorWatcher {
  public:
    struct Options {
        /// Time without input after which nobody is there. As long as the X server's own screen
        /// saver waits.
        std::chrono::milliseconds idleAfter = std::chrono::minutes(10);
        /// Called on the watcher's thread whenever what it knows has changed; titles don't count.
        std::function<void()> changed = {};
    };

    explicit CompositorWatcher(Options options);
    /// Ends the connection and the thread; may take a fifth of a second when the compositor hangs.
    ~CompositorWatcher();
    CompositorWatcher(const CompositorWatcher&) = delete;
    CompositorWatcher& operator=(const CompositorWatcher&) = delete;

    /// A reading that begins after the call; absent when it takes longer than `patience` or the
    /// compositor is gone.
    [[nodiscard]] std::optional<CompositorState> read(std::chrono::milliseconds patience);
    /// The last reading, at once; empty while the compositor is gone.
    [[nodiscard]] CompositorState last() const;
    /// Waits until the first attempt to connect has ended; for the start of the program.
    void waitUntilKnown(std::chrono::milliseconds patience) const;

  private:
    void run();
    void connect();
    void serve();
    void lose();
    void publish(std::optional<std::uint64_t> ticket);
    void wake() const;
    [[nodiscard]] bool isEnding() const;

    const Options options_;
    const FileDescriptor wakeUp_;
    std::unique_ptr<Connection> connection_; // used by the thread only, as those below
    std::unique_ptr<Toplevels> toplevels_;
    std::unique_ptr<Presence> presence_;
    std::uint64_t seen_ = 0;
    bool isLost_ = false;

    mutable std::mutex mutex_;
    mutable std::condition_variable served_;
    CompositorState last_;       // guarded by mutex_
    std::uint64_t asked_ = 0;    // guarded by mutex_
    std::uint64_t answered_ = 0; // guarded by mutex_
    bool isKnown_ = false;       // guarded by mutex_
    bool isEnding_ = false;      // guarded by mutex_
    std::thread thread_;         // last: it uses all of the above
};

} // namespace mnemora::wayland
