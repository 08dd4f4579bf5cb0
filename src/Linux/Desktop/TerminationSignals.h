#pragma once
// SIGTERM, SIGINT and SIGHUP as an ordinary request to quit.

#include <functional>
#include <memory>

class QSocketNotifier;

namespace mnemora::desktop {

/// While it lives, each of the three signals calls `quit` on the main thread. One at a time.
class TerminationSignals {
  public:
    explicit TerminationSignals(std::function<void()> quit);
    ~TerminationSignals();
    TerminationSignals(const TerminationSignals&) = delete;
    TerminationSignals& operator=(const TerminationSignals&) = delete;

  private:
    std::unique_ptr<QSocketNotifier> notifier_; // null when there was no pipe to be had
};

} // namespace mnemora::desktop
