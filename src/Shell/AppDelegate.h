#pragma once
// What the desktop application does when it has started: it owns the parts that run all day.

#include <memory>

namespace mnemora {

class ActivitySampler;
class MnemoraStore;

/// Main thread.
class AppDelegate {
  public:
    /// `store` outlives the delegate.
    explicit AppDelegate(MnemoraStore& store);
    ~AppDelegate();
    AppDelegate(const AppDelegate&) = delete;
    AppDelegate& operator=(const AppDelegate&) = delete;

    /// Starts capture. Called once, when the main loop is about to run and the services are
    /// installed.
    void applicationDidFinishLaunching();

  private:
    MnemoraStore& store_;
    std::shared_ptr<ActivitySampler> sampler_; // null before launching has finished
};

} // namespace mnemora
