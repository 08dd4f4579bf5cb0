#pragma once
// The session's switch for accessibility: property IsEnabled of org.a11y.Status, served by
// at-spi-bus-launcher, which remembers it in the desktop's settings where there are any. The
// switch for screen readers beside it is never touched.

#include "Linux/Desktop/GLibThread.h"

#include <memory>
#include <optional>

namespace mnemora::desktop {

/// Asks on `thread` and answers at once from what was last heard. Any thread.
class AccessibilitySwitch {
  public:
    /// `thread` outlives the switch.
    explicit AccessibilitySwitch(GLibThread& thread);
    ~AccessibilitySwitch();
    AccessibilitySwitch(const AccessibilitySwitch&) = delete;
    AccessibilitySwitch& operator=(const AccessibilitySwitch&) = delete;

    /// Asks for the state anew; isOn() knows it a little later.
    void refresh();
    /// Absent before the first answer and where the session has no such switch.
    [[nodiscard]] std::optional<bool> isOn() const;
    void set(bool on);
    /// Whether the last set() was refused.
    [[nodiscard]] bool lastChangeFailed() const;

  private:
    struct State;

    GLibThread& thread_;
    std::shared_ptr<State> state_;
};

} // namespace mnemora::desktop
