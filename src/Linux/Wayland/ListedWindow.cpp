#include "Linux/Wayland/ListedWindow.h"

#include "Capture/Privacy.h"

namespace mnemora::wayland {

bool isChange(const ListedWindow& before, const ListedWindow& now) {
    if (before == now)
        return false;
    ListedWindow retitled = before;
    retitled.title = now.title;
    const auto isWithheld = [](const ListedWindow& window) {
        return Privacy::shouldRedact(std::nullopt, window.title);
    };
    return retitled != now || isWithheld(before) || isWithheld(now);
}

} // namespace mnemora::wayland
