#include "Linux/Screen/X11ScreenCapture.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <system_error>
#include <thread>
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
                                   std::function<bool()> hasRoom,
                                   std::function<std::uint64_t()> windowChanges)
    : guard_(std::move(guard)), regions_(std::move(regions)), hasRoom_(std::move(hasRoom)),
      windowChanges_(std::move(windowChanges)) {
    if (isWaylandSession())
        return;
    const std::lock_guard lock(server_->mutex);
    server_->connect();
}

bool X11ScreenCapture::Server::connect() {
    if (!screen || !screen->isAlive())
        screen = X11Screen::open();
    isReadable = screen != nullptr;
    return isReadable;
}

bool X11ScreenCapture::isPermitted() {
    if (isWaylandSession())
        return false;
    if (!server_->isReadable)
        seekServer();
    return server_->isReadable;
}

// Connecting has no bound of its own, so nobody ever waits for this thread.
void X11ScreenCapture::seekServer() {
    if (server_->isSought.exchange(true))
        return;
    try {
        std::thread([server = server_] {
            {
                const std::lock_guard lock(server->mutex);
                server->connect();
            }
            server->isSought = false;
        }).detach();
    } catch (const std::system_error&) { // no thread to be had
        server_->isSought = false;
    }
}

std::uint64_t X11ScreenCapture::windowChanges() const {
    return windowChanges_ ? windowChanges_() : 0;
}

Outcome<std::vector<Display>> X11ScreenCapture::displays() {
    keep(std::nullopt);
    if (isWaylandSession() || !hasRoom_() || !guard_->contentMayBeRead())
        return std::vector<Display>();
    const auto changes = windowChanges();
    const auto before = regions_->withheld();
    if (!before)
        return std::vector<Display>();
    const auto taken = shot();
    const auto after = regions_->withheld();
    // What came and went in between has not been judged.
    if (!after || !guard_->contentMayBeRead() || windowChanges() != changes)
        return std::vector<Display>();
    if (!taken)
        return Failure{taken.description()};
    std::vector<Display> displays;
    for (const auto& monitor : taken->monitors)
        displays.push_back({monitor.name, monitor.width, monitor.height});
    if (displays.empty())
        return displays;
    auto parts = *before;
    parts.insert(parts.end(), after->begin(), after->end());
    keep(Picture{displays.front(), parts.empty()
                                       ? taken->image
                                       : blackened(taken->image, taken->monitors.front(), parts)});
    return displays;
}

Outcome<Image> X11ScreenCapture::image(const Display& display, int width, int height) {
    const std::lock_guard lock(mutex_);
    if (!picture_ || picture_->display.identifier != display.identifier ||
        picture_->display.width != width || picture_->display.height != height)
        return Failure{"the display has no picture of this size"};
    Image image = std::move(picture_->image);
    picture_.reset();
    return image;
}

void X11ScreenCapture::keep(std::optional<Picture> picture) {
    const std::lock_guard lock(mutex_);
    picture_ = std::move(picture);
}

Outcome<X11ScreenCapture::Shot> X11ScreenCapture::shot() {
    const std::lock_guard lock(server_->mutex);
    if (!server_->connect())
        return Failure{"the X server can't be reached"};
    auto monitors = server_->screen->monitors();
    if (!server_->screen->isAlive())
        return Failure{"the X server doesn't answer"};
    if (monitors.empty())
        return Shot{};
    auto image = server_->screen->picture(monitors.front());
    if (!image)
        return Failure{"the X server gave no picture"};
    return Shot{std::move(monitors), *std::move(image)};
}

} // namespace mnemora::x11
