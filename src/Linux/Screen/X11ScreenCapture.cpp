#include "Linux/Screen/X11ScreenCapture.h"

#include "Linux/Wayland/Connection.h"

#include <system_error>
#include <thread>
#include <utility>

namespace mnemora::x11 {

X11ScreenCapture::X11ScreenCapture(CaptureChecks checks) : GuardedScreenCapture(std::move(checks)) {
    if (wayland::isWaylandSession())
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
    if (wayland::isWaylandSession())
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

Outcome<X11ScreenCapture::Shot> X11ScreenCapture::shot() {
    if (wayland::isWaylandSession())
        return Shot{};
    const std::lock_guard lock(server_->mutex);
    if (!server_->connect())
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
