#pragma once
// What a test of faults counts before and after: whatever a failing peer leaves behind.

#include "fakes/Eventually.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>
#include <thread>

namespace mnemora::test {

/// Threads and open descriptors of this process.
struct ProcessUse {
    long threads = 0;
    long descriptors = 0;

    [[nodiscard]] static ProcessUse now() {
        // A sanitizer's runtime starts a thread of its own with the first one of the process.
        static const bool started = (std::thread([] {}).join(), true);
        static_cast<void>(started);
        const auto count = [](const char* folder) {
            return std::distance(std::filesystem::directory_iterator(folder), {});
        };
        return {count("/proc/self/task"), count("/proc/self/fd")};
    }

    /// Whether the process comes down to this use within `patience`: threads end a moment after
    /// what waits for them.
    [[nodiscard]] bool comesBack(std::chrono::milliseconds patience = std::chrono::seconds(10)) {
        return Eventually{.patience = patience}([this] {
            const auto use = now();
            return use.threads <= threads && use.descriptors <= descriptors;
        });
    }
};

inline std::ostream& operator<<(std::ostream& out, const ProcessUse& use) {
    return out << use.threads << " threads, " << use.descriptors << " descriptors";
}

/// The longest of several measured waits, without the time for which the processors were taken:
/// what counts is how long somebody else is waited for.
class LongestWait {
  public:
    /// Runs the call and counts how long it took.
    template <class Call>
    auto operator()(Call&& call) {
        struct Measure {
            LongestWait& owner;
            std::chrono::steady_clock::time_point began = std::chrono::steady_clock::now();
            std::chrono::nanoseconds queued = timeInQueue();
            ~Measure() {
                const auto took = std::chrono::ceil<std::chrono::milliseconds>(
                    std::chrono::steady_clock::now() - began - (timeInQueue() - queued));
                owner.longest_ = std::max(owner.longest_, took);
            }
        } const measure{*this};
        return call();
    }
    [[nodiscard]] std::chrono::milliseconds longest() const { return longest_; }

  private:
    /// How long this thread has been ready to run without a processor (proc(5), schedstat: the
    /// kernel's Documentation/scheduler/sched-stats.rst).
    static std::chrono::nanoseconds timeInQueue() {
        std::ifstream file("/proc/thread-self/schedstat");
        std::int64_t ran = 0;
        std::int64_t waited = 0;
        file >> ran >> waited;
        return std::chrono::nanoseconds(waited);
    }

    std::chrono::milliseconds longest_{0};
};

} // namespace mnemora::test
