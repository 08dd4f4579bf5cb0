#include "Linux/Desktop/BackgroundPool.h"

#include "Log.h"

#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <string>
#include <sys/resource.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

namespace mnemora::desktop {
namespace {

constexpr int workerCount = 3;

// Jobs take the store's lock, so the idle scheduling class would let any busy program hold up
// the whole memory; the lowest niceness yields just as politely and still moves on.
constexpr int workerNiceness = 19;

// While all workers hang, on a sound server or a locked file, looks at the screen come in every few
// seconds. Those that have waited for minutes would tell of another moment than they were for.
constexpr std::size_t mostWaiting = 32;

} // namespace

void runGuarded(const std::function<void()>& job) {
    try {
        job();
    } catch (const std::exception& error) {
        logError("a job failed: " + std::string(error.what()));
    } catch (...) {
        logError("a job failed");
    }
}

struct BackgroundPool::State {
    std::mutex mutex;
    std::condition_variable arrived;
    std::condition_variable idle;
    std::deque<std::function<void()>> waiting; // guarded by mutex
    int threads = 0;                           // guarded by mutex
    int running = 0;                           // guarded by mutex
    bool ending = false;                       // guarded by mutex
    bool isBehind = false;                     // guarded by mutex

    static void work(const std::shared_ptr<State>& state);
};

void BackgroundPool::State::work(const std::shared_ptr<State>& state) {
    setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), workerNiceness);
    std::unique_lock lock(state->mutex);
    while (true) {
        state->arrived.wait(lock, [&] { return state->ending || !state->waiting.empty(); });
        if (state->ending)
            return;
        auto job = std::move(state->waiting.front());
        state->waiting.pop_front();
        state->isBehind = state->isBehind && !state->waiting.empty();
        ++state->running;
        lock.unlock();
        runGuarded(job);
        job = nullptr; // what it holds goes outside the lock
        lock.lock();
        --state->running;
        state->idle.notify_all();
    }
}

BackgroundPool::BackgroundPool() : state_(std::make_shared<State>()) {}

BackgroundPool::~BackgroundPool() {
    finish(std::chrono::milliseconds(0));
}

void BackgroundPool::run(std::function<void()> job) {
    std::function<void()> dropped; // what it holds goes outside the lock
    const std::lock_guard lock(state_->mutex);
    if (state_->ending)
        return;
    state_->waiting.push_back(std::move(job));
    if (state_->waiting.size() > mostWaiting) {
        dropped = std::move(state_->waiting.front());
        state_->waiting.pop_front();
        if (!std::exchange(state_->isBehind, true))
            logError("background work is stuck; the oldest of it is dropped");
    }
    const int needed = state_->running + static_cast<int>(state_->waiting.size());
    if (state_->threads < workerCount && state_->threads < needed) {
        try {
            std::thread([state = state_] { State::work(state); }).detach();
            ++state_->threads;
        } catch (const std::system_error& error) {
            logError("no worker thread: " + std::string(error.what()));
        }
    }
    state_->arrived.notify_one();
}

bool BackgroundPool::finish(std::chrono::milliseconds patience) {
    std::deque<std::function<void()>> dropped;
    std::unique_lock lock(state_->mutex);
    state_->ending = true;
    dropped.swap(state_->waiting);
    state_->arrived.notify_all();
    return state_->idle.wait_for(lock, patience, [&] { return state_->running == 0; });
}

} // namespace mnemora::desktop
