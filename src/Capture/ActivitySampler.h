#pragma once
// The heart of capture: every few seconds, what the user is looking at becomes one event.

#include "Platform/MainLoop.h"

#include <chrono>
#include <memory>

namespace mnemora {

class MnemoraStore;

/// Made and started once by the application delegate, which owns it; the store outlives it.
/// There is no stop. Main thread, except for the slow part of a tick, which is a background job
/// of its own; jobs of several ticks may overlap.
class ActivitySampler : public std::enable_shared_from_this<ActivitySampler> {
  public:
    ActivitySampler(MnemoraStore& store, std::chrono::duration<double> interval);

    /// Says which permissions are missing, takes the first sample, and goes on every interval.
    void start();

  private:
    void fire();
    static void warnMissingPermissions();

    MnemoraStore& store_;
    std::chrono::duration<double> interval_;
    std::unique_ptr<Timer> timer_;
};

} // namespace mnemora
