#pragma once
// The windows of other programs as the accessibility bus names them (AT-SPI 2,
// https://gnome.pages.gitlab.gnome.org/at-spi2-core/): which one of a process is active and what
// it is called. Spoken to by plain asynchronous bus calls on a thread of its own, so that a
// program that hangs keeps nobody waiting, this thread included.

#include "Linux/Desktop/ProcessFacts.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace mnemora::atspi {

/// What the accessibility bus says of the windows of one process.
struct WindowReading {
    /// The active window's accessible name in valid UTF-8; absent when the process has none or it
    /// can't be read.
    std::optional<std::string> name = {};
    /// Exactly one window of the process says that it is active.
    bool isCertain = false;
    /// The names of all its windows that can be read, in no order.
    std::vector<std::string> names = {};
    /// None of its windows is missing among the names.
    bool areAllNamesKnown = false;

    bool operator==(const WindowReading&) const = default;
};

/// A program on the bus.
struct AccessibleProgram {
    desktop::ProcessFacts process;
    WindowReading reading;

    bool operator==(const AccessibleProgram&) const = default;
};

/// All programs on the bus.
struct AccessiblePrograms {
    std::vector<AccessibleProgram> programs = {};
    /// Grows whenever a window became active or ceased to be, when a program left, and when one is
    /// heard to have other names than before, one of them withheld.
    std::uint64_t changes = 0;
    /// When it was seen to grow last; the clock's beginning before that.
    std::chrono::steady_clock::time_point changedAt = {};
};

/// Any thread. The switch for screen readers is never touched.
class AccessibleWindows {
  public:
    /// Begins to connect; the bus may come and go at any time later.
    AccessibleWindows();
    ~AccessibleWindows();
    AccessibleWindows(const AccessibleWindows&) = delete;
    AccessibleWindows& operator=(const AccessibleWindows&) = delete;

    /// Whether the bus is on (org.a11y.Status, IsEnabled) and its registry answers.
    [[nodiscard]] bool isAvailable() const;
    /// Waits until it is known whether it is available; for the start of the program.
    [[nodiscard]] bool waitUntilKnown(std::chrono::milliseconds patience) const;
    /// Asks the process anew. Absent when the answer takes longer than `patience`, or, at once,
    /// when the process has been hanging lately.
    [[nodiscard]] std::optional<WindowReading> read(int processIdentifier,
                                                    std::chrono::milliseconds patience);
    /// What was last heard of the process, at once.
    [[nodiscard]] WindowReading last(int processIdentifier) const;
    /// Asks all programs anew. Absent when the bus is off or not all answers came within
    /// `patience`; programs that have been hanging lately aren't waited for and keep what was last
    /// heard of them.
    [[nodiscard]] std::optional<AccessiblePrograms> readAll(std::chrono::milliseconds patience);
    /// Has all programs asked anew, those too that came to the bus without a word, unless that was
    /// done a moment ago; waits for nobody.
    void refresh();
    /// What was last heard of all programs, at once; none while the bus is off.
    [[nodiscard]] AccessiblePrograms lastOfAll() const;
    /// Calls `changed` on the bus's thread whenever AccessiblePrograms::changes has grown, until
    /// the object is gone.
    void follow(std::function<void()> changed);

  private:
    struct Shared;
    class Listener;
    std::shared_ptr<Shared> shared_;
    std::unique_ptr<Listener> listener_;
};

} // namespace mnemora::atspi
