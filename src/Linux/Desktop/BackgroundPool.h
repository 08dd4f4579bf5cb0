#pragma once
// A few worker threads of low priority for work that nobody waits for.

#include <chrono>
#include <functional>
#include <memory>

namespace mnemora::desktop {

/// Runs the job; what it throws ends in one error line.
void runGuarded(const std::function<void()>& job);

/// Three threads, started at the first job. Any thread may hand over work.
class BackgroundPool {
  public:
    BackgroundPool();
    /// As finish() without patience.
    ~BackgroundPool();
    BackgroundPool(const BackgroundPool&) = delete;
    BackgroundPool& operator=(const BackgroundPool&) = delete;

    /// Runs `job` as soon as a worker is free, in order of arrival. Nothing after finish(). At most
    /// 32 wait; one more drops the oldest, with one error line until the queue is empty again.
    void run(std::function<void()> job);

    /// Drops what has not begun and waits at most `patience` for what has; threads still busy
    /// then are left to end with the process. True when none was.
    bool finish(std::chrono::milliseconds patience);

  private:
    struct State;
    std::shared_ptr<State> state_; // shared with the threads, which may outlive the pool
};

} // namespace mnemora::desktop
