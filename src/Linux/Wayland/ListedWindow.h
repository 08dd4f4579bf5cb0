#pragma once
// What a compositor tells of a window to other programs.

#include <cstdint>
#include <string>

namespace mnemora::wayland {

/// A window of the session. Texts are valid UTF-8 and empty where there is none; any program may
/// claim any of them.
struct ListedWindow {
    /// Ours for as long as the window lives; never 0.
    std::uint32_t number = 0;
    std::string title = {};
    /// The desktop entry as the program states it; the class of a window of the X server.
    std::string applicationId = {};
    /// 0 where the compositor doesn't tell.
    int process = 0;
    bool isActive = false;
    bool isMinimized = false;

    bool operator==(const ListedWindow&) const = default;
};

/// Whether the screen may show something else after the change of a window from `before` to `now`
/// that somebody has to wait for: any but that of a title, and a title that is withheld before or
/// after, because programs change it before they paint.
[[nodiscard]] bool isChange(const ListedWindow& before, const ListedWindow& now);

} // namespace mnemora::wayland
