#pragma once
// A session bus that hangs before the program starts. The toolkit waits for its bus without a
// bound, so it is only shown one that answers.

#include <chrono>
#include <string>

namespace mnemora::desktop {

/// Whether the session bus lets the program in within `patience`; true also where there is none,
/// which the toolkit finds out at once. Takes about a millisecond where it answers.
[[nodiscard]] bool sessionBusAnswers(std::chrono::milliseconds patience);

/// While it lives, this process knows no session bus. Not for several threads, nor two at a time.
class WithoutSessionBus {
  public:
    WithoutSessionBus();
    ~WithoutSessionBus();
    WithoutSessionBus(const WithoutSessionBus&) = delete;
    WithoutSessionBus& operator=(const WithoutSessionBus&) = delete;

  private:
    std::string former_;
};

} // namespace mnemora::desktop
