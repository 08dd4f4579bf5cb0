#pragma once
// The main thread's event loop and a few background workers.

#include <chrono>
#include <functional>
#include <memory>

namespace mnemora {

/// A scheduled callback; destroying it cancels it. Main thread.
struct Timer {
    virtual ~Timer() = default;
};

/// Abstract so that tests drive a virtual clock; the real one is the toolkit's event loop.
struct MainLoop {
    virtual ~MainLoop() = default;

    /// Runs `job` on the main thread soon, after what was posted before. Any thread.
    virtual void post(std::function<void()> job) = 0;
    /// Runs `job` on the main thread every `interval` until the timer goes. After a suspend or a
    /// stall it runs once, not once for every missed turn. Main thread.
    [[nodiscard]] virtual std::unique_ptr<Timer> every(std::chrono::milliseconds interval,
                                                       std::function<void()> job) = 0;
    /// Runs `job` once on the main thread after `delay`, unless the timer goes first. Main thread.
    [[nodiscard]] virtual std::unique_ptr<Timer> after(std::chrono::milliseconds delay,
                                                       std::function<void()> job) = 0;
    /// Runs `job` on a worker thread of background priority. Jobs may overlap. Any thread.
    virtual void background(std::function<void()> job) = 0;
};

} // namespace mnemora
