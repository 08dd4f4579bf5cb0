#pragma once
// A program on the accessibility bus that does what no real one would be made to do: hangs, lies,
// floods. It speaks with plain messages, on the bus library's own thread.

#include "Linux/Desktop/GLibHandles.h"

#include <atomic>
#include <functional>
#include <mutex>
#include <string>

namespace mnemora::desktop {

/// Has one window, active and called `Window <title>`, until told otherwise. The process behind it
/// is the test's own. Any thread.
class FakeProgram {
  public:
    /// The body of a reply; null: no reply, ever.
    using Reply = std::function<GVariant*()>;
    struct Replies {
        Reply children;
        Reply name;
        Reply state;
    };

    FakeProgram();
    ~FakeProgram();
    FakeProgram(const FakeProgram&) = delete;
    FakeProgram& operator=(const FakeProgram&) = delete;

    [[nodiscard]] bool isConnected() const { return bus_ != nullptr; }
    /// Answers as a well-behaved program with this window does.
    void behave(const std::string& title);
    /// Answers no more.
    void hang();
    void answer(Replies replies);
    /// Enters itself in the bus's list of programs; false where that fails.
    bool join();
    /// Says that its window became active, that many times.
    void announce(int times = 1);
    /// How often its windows were asked for.
    [[nodiscard]] int surveys() const { return surveys_; }
    [[nodiscard]] const char* service() const;

    /// A list of children: the service and the path of each.
    static GVariant* objects(const std::string& service, const std::string& path, int count = 1);

  private:
    GDBusMessage* take(GDBusMessage* call);

    GRef<GDBusConnection> bus_;
    guint filter_ = 0;
    std::mutex mutex_;
    Replies replies_; // guarded by mutex_
    std::atomic<int> surveys_ = 0;
};

/// The process at the other end of the accessibility bus: its message bus itself; 0 without one.
[[nodiscard]] int accessibilityBusProcess();
/// The process that tells on the session's bus whether there is one (org.a11y.Bus); 0 without it.
[[nodiscard]] int accessibilityServiceProcess();

} // namespace mnemora::desktop
