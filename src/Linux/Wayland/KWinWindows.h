#pragma once
// The windows of a KDE Plasma session, told by a small script inside its window manager
// (https://develop.kde.org/docs/plasma/kwin/): KWin hands no list of windows to other programs by
// Wayland. The script calls back over the session's message bus, with title, application, process
// and which window is active.

#include "Linux/Desktop/GLibThread.h"
#include "Linux/Wayland/ListedWindow.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace mnemora::wayland {

/// What the script last told.
struct KWinState {
    /// Absent while no KWin is there, before its script's first word and after one that is no list.
    std::optional<std::vector<ListedWindow>> windows = {};
    /// Grows whenever a window came to the front, appeared, went or changed (see isChange).
    std::uint64_t changes = 0;
    /// When it was seen to grow last; the clock's beginning before that.
    std::chrono::steady_clock::time_point changedAt = {};
};

/// The windows of the script's message, a JSON array of objects; absent when it is none, or one
/// without measure. Safe on any text.
[[nodiscard]] std::optional<std::vector<ListedWindow>> parseKWinWindows(std::string_view message);

/// The script, which calls the program of this unique name on the bus.
[[nodiscard]] std::string kwinScript(const std::string& busName);

/// Any thread. Does nothing where no KWin is on the bus; follows one that comes or goes.
class KWinWindows {
  public:
    /// `changed` is called on `thread`, which outlives it, whenever KWinState::changes has grown.
    KWinWindows(desktop::GLibThread& thread, std::function<void()> changed);
    /// Takes the script out of KWin again.
    ~KWinWindows();
    KWinWindows(const KWinWindows&) = delete;
    KWinWindows& operator=(const KWinWindows&) = delete;

    /// What KWin had told when this was called; absent when it takes longer than `patience` to
    /// answer. Without KWin the answer is at once and empty.
    [[nodiscard]] std::optional<KWinState> read(std::chrono::milliseconds patience);
    /// What it last told, at once.
    [[nodiscard]] KWinState last() const;

  private:
    struct Listener;

    desktop::GLibThread& thread_;
    std::shared_ptr<Listener> listener_;
};

} // namespace mnemora::wayland
