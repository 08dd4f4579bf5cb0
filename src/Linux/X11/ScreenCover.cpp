#include "Linux/X11/Connection.h"

#include "Linux/X11/Answers.h"

#include <algorithm>
#include <xcb/dpms.h>
#include <xcb/screensaver.h>
#include <xcb/xcb.h>

namespace mnemora::x11 {

bool Connection::isScreenCovered() {
    return isSwitchedOff() || isBehindUnmanagedWindow();
}

bool Connection::isSwitchedOff() {
    auto* connection = connection_.get();
    if (hasPowerState_) {
        const Reply<xcb_dpms_info_reply_t> power(
            xcb_dpms_info_reply(connection, xcb_dpms_info(connection), nullptr));
        if (power && power->state != 0 && power->power_level != XCB_DPMS_DPMS_MODE_ON)
            return true;
    }
    if (!hasScreenSaver_)
        return false;
    const Reply<xcb_screensaver_query_info_reply_t> saver(xcb_screensaver_query_info_reply(
        connection, xcb_screensaver_query_info(connection, root_), nullptr));
    return saver && saver->state == XCB_SCREENSAVER_STATE_ON;
}

std::vector<Window> Connection::children(Window window) {
    const Reply<xcb_query_tree_reply_t> tree(xcb_query_tree_reply(
        connection_.get(), xcb_query_tree(connection_.get(), window), nullptr));
    return tree ? childrenIn(*tree) : std::vector<Window>();
}

std::optional<Window> Connection::parent(Window window) {
    const Reply<xcb_query_tree_reply_t> tree(xcb_query_tree_reply(
        connection_.get(), xcb_query_tree(connection_.get(), window), nullptr));
    return tree && tree->parent != XCB_WINDOW_NONE ? std::optional<Window>(tree->parent)
                                                   : std::nullopt;
}

/// Whether the window is on screen, takes no orders from the window manager and leaves nothing of
/// the screen free.
bool Connection::covers(Window window) {
    auto* connection = connection_.get();
    const auto attributesAsked = xcb_get_window_attributes(connection, window);
    const auto placeAsked = xcb_get_geometry(connection, window);
    const auto screenAsked = xcb_get_geometry(connection, root_);
    const Reply<xcb_get_window_attributes_reply_t> attributes(
        xcb_get_window_attributes_reply(connection, attributesAsked, nullptr));
    const Reply<xcb_get_geometry_reply_t> place(
        xcb_get_geometry_reply(connection, placeAsked, nullptr));
    const Reply<xcb_get_geometry_reply_t> screen(
        xcb_get_geometry_reply(connection, screenAsked, nullptr));
    if (!attributes || !place || !screen || attributes->override_redirect == 0 ||
        attributes->map_state != XCB_MAP_STATE_VIEWABLE ||
        attributes->_class != XCB_WINDOW_CLASS_INPUT_OUTPUT)
        return false;
    return place->x <= 0 && place->y <= 0 && place->x + place->width >= screen->width &&
           place->y + place->height >= screen->height;
}

// Lockers like i3lock and slock tell nobody: they cover the screen with a window that the window
// manager has no part in. Frames of window managers are of that kind too, but hold a client.
bool Connection::isBehindUnmanagedWindow() {
    constexpr std::size_t maxPopups = 24; // menus and notices that lie above
    const auto managed = clients();
    const auto isManaged = [&](Window window) {
        return std::find(managed.begin(), managed.end(), window) != managed.end();
    };
    auto frame = activeWindow();
    constexpr int maxDepth = 32;
    int depth = 0;
    for (auto above = frame; above && above != root_ && depth < maxDepth; above = parent(*above)) {
        frame = above;
        ++depth;
    }
    // Programs keep many helper windows that are never shown: those don't count.
    const auto topLevels = viewableTopLevels().value_or(std::vector<Window>());
    std::size_t seen = 0;
    for (auto window = topLevels.rbegin(); window != topLevels.rend() && seen++ < maxPopups;
         ++window) {
        if (*window == frame || isManaged(*window))
            return false;
        if (!covers(*window))
            continue;
        const auto inside = children(*window);
        return std::none_of(inside.begin(), inside.end(), isManaged);
    }
    return false;
}

} // namespace mnemora::x11
