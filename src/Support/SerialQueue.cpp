#include "Support/SerialQueue.h"

#include <cassert>
#include <exception>
#include <pthread.h>

namespace mnemora {
namespace {

/// The kernel keeps 15 bytes of a thread's name: the part after the last dot says the most.
void nameThread(const std::string& label) {
    const auto dot = label.rfind('.');
    const auto name = label.substr(dot == std::string::npos ? 0 : dot + 1).substr(0, 15);
    pthread_setname_np(pthread_self(), name.c_str());
}

} // namespace

SerialQueue::SerialQueue(std::string label)
    : label_(std::move(label)), thread_([this] { run(); }) {}

SerialQueue::~SerialQueue() {
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
    }
    arrived_.notify_one();
    thread_.join();
}

void SerialQueue::sync(const std::function<void()>& job) {
    assert(std::this_thread::get_id() != thread_.get_id() && "a job waits for its own queue");
    Waiting entry{.job = &job, .done = false, .finished = {}};
    std::unique_lock lock(mutex_);
    waiting_.push_back(&entry);
    arrived_.notify_one();
    entry.finished.wait(lock, [&] { return entry.done; });
}

void SerialQueue::run() {
    nameThread(label_);
    std::unique_lock lock(mutex_);
    for (;;) {
        arrived_.wait(lock, [this] { return ending_ || !waiting_.empty(); });
        if (waiting_.empty())
            return;
        Waiting* entry = waiting_.front();
        waiting_.pop_front();
        lock.unlock();
        try {
            (*entry->job)();
        } catch (const std::exception&) {
            // Memory ran out inside a job: its caller sees what the job had done so far.
        }
        lock.lock();
        entry->done = true;
        // Under the lock: the entry is gone as soon as its caller wakes.
        entry->finished.notify_one();
    }
}

} // namespace mnemora
