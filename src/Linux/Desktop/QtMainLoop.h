#pragma once
// The main thread's loop on the toolkit's event loop, with a small pool for background work.

#include "Linux/Desktop/BackgroundPool.h"
#include "Platform/MainLoop.h"

#include <chrono>
#include <memory>

class QObject;

namespace mnemora::desktop {

/// Needs the toolkit's application object for as long as it lives. Made on the main thread; a job
/// that throws is logged and otherwise forgotten.
class QtMainLoop : public MainLoop {
  public:
    QtMainLoop();
    ~QtMainLoop() override;

    void post(std::function<void()> job) override;
    [[nodiscard]] std::unique_ptr<Timer> every(std::chrono::milliseconds interval,
                                               std::function<void()> job) override;
    [[nodiscard]] std::unique_ptr<Timer> after(std::chrono::milliseconds delay,
                                               std::function<void()> job) override;
    void background(std::function<void()> job) override;

    /// Drops background work that hasn't begun and gives what runs that long to end. False when
    /// some of it still runs then.
    [[nodiscard]] bool finish(std::chrono::milliseconds patience);

  private:
    std::unique_ptr<QObject> receiver_; // of posted jobs; parent of timers
    BackgroundPool pool_;
};

} // namespace mnemora::desktop
