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

Image blackened(const Image& image, const Monitor& place, const desktop::Area& parts) {
    constexpr int bytesPerPixel = 4;
    const auto pixels = std::make_shared<std::vector<std::uint8_t>>(*image.pixels);
    for (const auto& part : parts) {
        const int left = std::clamp(part.left - place.left, 0, image.width);
        const int right = std::clamp(part.left + part.width - place.left, left, image.width);
        const int top = std::clamp(part.top - place.top, 0, image.height);
        const int bottom = std::clamp(part.top + part.height - place.top, top, image.height);
        for (int y = top; y < bottom; ++y) {
            const auto row = pixels->begin() + static_cast<std::ptrdiff_t>(image.stride) * y;
            std::fill(row + left * bytesPerPixel, row + right * bytesPerPixel, std::uint8_t{0});
        }
    }
    return {image.width, image.height, image.stride, pixels};
}

X11ScreenCapture::X11ScreenCapture(std::shared_ptr<FrontWindowGuard> guard,
                                   std::shared_ptr<WithheldRegions> regions,
                                   std::function<bool()> hasRoom)
    : guard_(std::move(guard)), regions_(std::move(regions)), hasRoom_(std::move(hasRoom)) {}

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
    if (isWaylandSession() || !hasRoom_() || !guard_->contentMayBeRead() || !regions_->withheld())
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
    const Failure isPrivate{"what is on the screen may not be read"};
    if (isWaylandSession() || !guard_->contentMayBeRead())
        return isPrivate;
    const auto before = regions_->withheld();
    if (!before)
        return isPrivate;
    const auto taken = shot(display, width, height);
    const auto after = regions_->withheld();
    if (!after || !guard_->contentMayBeRead())
        return isPrivate;
    if (!taken)
        return Failure{taken.description()};
    auto parts = *before;
    parts.insert(parts.end(), after->begin(), after->end());
    return parts.empty() ? taken->image : blackened(taken->image, taken->place, parts);
}

Outcome<X11ScreenCapture::Shot> X11ScreenCapture::shot(const Display& display, int width,
                                                       int height) {
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
    return Shot{*std::move(image), *monitor};
}

} // namespace mnemora::x11
