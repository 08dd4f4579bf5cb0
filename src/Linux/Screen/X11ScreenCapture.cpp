#include "Linux/Screen/X11ScreenCapture.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace mnemora::x11 {
namespace {

std::string_view variable(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

bool isWaylandSession() {
    return !variable("WAYLAND_DISPLAY").empty() || variable("XDG_SESSION_TYPE") == "wayland";
}

} // namespace

X11ScreenCapture::X11ScreenCapture(std::shared_ptr<FrontWindowGuard> guard,
                                   std::function<bool()> hasRoom)
    : guard_(std::move(guard)), hasRoom_(std::move(hasRoom)) {}

bool X11ScreenCapture::isPermitted() {
    if (isWaylandSession())
        return false;
    const std::unique_lock lock(mutex_, std::try_to_lock);
    // A picture is being taken elsewhere: no reason to wait for it.
    return lock ? connect() : readable_.load();
}

bool X11ScreenCapture::connect() {
    if (!screen_ || !screen_->isAlive())
        screen_ = X11Screen::open();
    readable_ = screen_ != nullptr;
    return readable_;
}

Outcome<std::vector<Display>> X11ScreenCapture::displays() {
    if (isWaylandSession() || !hasRoom_() || !guard_->contentMayBeRead())
        return std::vector<Display>();
    const std::lock_guard lock(mutex_);
    if (!connect())
        return Failure{"the X server can't be reached"};
    std::vector<Display> displays;
    for (const auto& monitor : screen_->monitors())
        displays.push_back({monitor.name, monitor.width, monitor.height});
    return displays;
}

Outcome<Image> X11ScreenCapture::image(const Display& display, int width, int height) {
    constexpr auto* isPrivate = "a private window is in front";
    if (isWaylandSession() || !guard_->contentMayBeRead())
        return Failure{isPrivate};
    auto image = shot(display, width, height);
    if (!guard_->contentMayBeRead())
        return Failure{isPrivate};
    return image;
}

Outcome<Image> X11ScreenCapture::shot(const Display& display, int width, int height) {
    const std::lock_guard lock(mutex_);
    if (!connect())
        return Failure{"the X server can't be reached"};
    const auto monitors = screen_->monitors();
    const auto monitor =
        std::find_if(monitors.begin(), monitors.end(), [&](const Monitor& candidate) {
            return candidate.name == display.identifier && candidate.width == width &&
                   candidate.height == height;
        });
    if (monitor == monitors.end())
        return Failure{"the display has changed"};
    auto image = screen_->picture(*monitor);
    if (!image)
        return Failure{"the X server gave no picture"};
    return *image;
}

} // namespace mnemora::x11
