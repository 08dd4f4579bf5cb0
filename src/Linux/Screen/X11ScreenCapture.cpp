#include "Linux/Screen/X11ScreenCapture.h"

#include "Linux/Wayland/Connection.h"

#include <chrono>
#include <system_error>
#include <thread>
#include <utility>

namespace mnemora::x11 {

X11ScreenCapture::X11ScreenCapture(CaptureChecks checks) : GuardedScreenCapture(std::move(checks)) {
    if (wayland::isWaylandSession())
        return;
    const std::lock_guard lock(server_->mutex);
    server_->screen = soughtScreen();
}

bool X11ScreenCapture::isPermitted() {
    if (wayland::isWaylandSession())
        return false;
    if (!server_->isReadable)
        seekServer();
    return server_->isReadable;
}

// Connecting has no bound of its own, so it has a thread of its own, one at a time.
void X11ScreenCapture::seekServer() {
    const std::lock_guard lock(server_->seeking);
    if (server_->isSought || server_->found)
        return;
    try {
        std::thread([server = server_] {
            auto screen = X11Screen::open();
            server->isReadable = screen != nullptr;
            {
                const std::lock_guard guard(server->seeking);
                server->found = std::move(screen);
                server->isSought = false;
            }
            server->ended.notify_all();
        }).detach();
        server_->isSought = true;
    } catch (const std::system_error&) { // no thread to be had
        server_->isReadable = false;
    }
}

std::unique_ptr<X11Screen> X11ScreenCapture::soughtScreen() {
    constexpr auto patience = std::chrono::seconds(2);
    seekServer();
    std::unique_lock lock(server_->seeking);
    server_->ended.wait_for(lock, patience, [this] { return !server_->isSought; });
    return std::move(server_->found);
}

Outcome<X11ScreenCapture::Shot> X11ScreenCapture::shot() {
    if (wayland::isWaylandSession())
        return Shot{};
    const std::lock_guard lock(server_->mutex);
    if (!server_->screen || !server_->screen->isAlive())
        server_->screen.reset(); // the former connection first, for the server may count them
    if (!server_->screen)
        server_->screen = soughtScreen();
    if (!server_->screen)
        return Failure{"the X server can't be reached"};
    const auto monitors = server_->screen->monitors();
    if (!server_->screen->isAlive())
        return Failure{"the X server doesn't answer"};
    if (monitors.empty())
        return Shot{};
    auto image = server_->screen->picture(monitors.front());
    if (!image)
        return Failure{"the X server gave no picture"};
    Shot shot;
    for (const auto& monitor : monitors)
        shot.displays.push_back({monitor.name, monitor.width, monitor.height});
    const auto& first = monitors.front();
    shot.place = {first.left, first.top, first.width, first.height};
    shot.image = *std::move(image);
    return shot;
}

} // namespace mnemora::x11
