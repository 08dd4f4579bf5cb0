#pragma once
// Waiting for what another thread or process does.

#include <chrono>
#include <thread>

namespace mnemora::test {

/// Called with a condition, looks until it holds, for `patience` at most; whether it came to hold.
struct Eventually {
    std::chrono::milliseconds patience;
    std::chrono::milliseconds pause = std::chrono::milliseconds(2); // between two looks

    template <class Condition>
    bool operator()(Condition&& holds) const {
        const auto bound = std::chrono::steady_clock::now() + patience;
        while (!holds()) {
            if (std::chrono::steady_clock::now() > bound)
                return false;
            std::this_thread::sleep_for(pause);
        }
        return true;
    }
};

} // namespace mnemora::test
