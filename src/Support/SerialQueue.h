#pragma once
// One thread that runs jobs in the order they were handed over, while their callers wait.

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace mnemora {

/// A serial queue with a thread of its own. Destruction finishes the waiting jobs first.
class SerialQueue {
  public:
    /// `label` is the queue's name in the program's own terms; the thread carries its last part.
    explicit SerialQueue(std::string label);
    ~SerialQueue();
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    /// Runs `job` on the queue's thread and returns when it is done; jobs of several callers run
    /// one after the other in order of arrival. Any thread but the queue's own: a job that waits
    /// for its own queue would wait for ever, which debug builds catch.
    void sync(const std::function<void()>& job);

    [[nodiscard]] const std::string& label() const { return label_; }

  private:
    struct Waiting {
        const std::function<void()>* job;
        bool done = false;
        std::condition_variable finished;
    };

    void run();

    const std::string label_;
    std::mutex mutex_;
    std::condition_variable arrived_;
    std::deque<Waiting*> waiting_; // guarded by mutex_
    bool ending_ = false;          // guarded by mutex_
    std::thread thread_;           // last: it uses all of the above
};

} // namespace mnemora
