#include "desktop/DesktopSession.h"

#include "Linux/Wayland/Connection.h"
#include "Linux/Wayland/SessionWindows.h"
#include "Linux/X11/FrontWindowWatcher.h"

#include <cstring>
#include <mutex>
#include <unistd.h>

namespace mnemora::desktop {
namespace {

/// One that no window of ours had. The server gives the numbers of a connection that ended to the
/// next one, and a window manager may go on naming a window that went as the active one: a new
/// window of that number would be in front before the manager has seen it.
xcb_window_t newNumber(xcb_connection_t* connection) {
    static std::mutex mutex;
    static std::uint32_t highest = 0; // guarded by mutex
    const std::lock_guard lock(mutex);
    const auto mask = xcb_get_setup(connection)->resource_id_mask;
    auto number = xcb_generate_id(connection);
    while ((number & mask) <= highest)
        number = xcb_generate_id(connection);
    highest = number & mask;
    return number;
}

} // namespace

OwnWindow::OwnWindow(xcb_connection_t* connection, const Marks& marks)
    : connection_(connection), window_(newNumber(connection)) {
    const auto* screen = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data;
    const bool covers = marks.coversScreen;
    const std::uint16_t width = covers ? screen->width_in_pixels : 300;
    const std::uint16_t height = covers ? screen->height_in_pixels : 200;
    const std::uint32_t values[] = {screen->white_pixel, covers ? 1U : 0U};
    xcb_create_window(connection_, XCB_COPY_FROM_PARENT, window_, screen->root, 0, 0, width, height,
                      0, XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual,
                      XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values);
    if (!marks.windowClass.empty())
        set("WM_CLASS", "STRING", marks.windowClass);
    if (!marks.oldTitle.empty())
        set("WM_NAME", marks.oldTitleType.c_str(), marks.oldTitle);
    if (!marks.title.empty())
        set("_NET_WM_NAME", "UTF8_STRING", marks.title);
    xcb_map_window(connection_, window_);
    xcb_flush(connection_);
}

OwnWindow::~OwnWindow() {
    xcb_destroy_window(connection_, window_);
    xcb_flush(connection_);
}

xcb_atom_t OwnWindow::atom(const std::string& name) const {
    const x11::Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
        connection_,
        xcb_intern_atom(connection_, 0, static_cast<std::uint16_t>(name.size()), name.c_str()),
        nullptr));
    return reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
}

void OwnWindow::set(const char* property, const char* type, const std::string& value) const {
    xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window_, atom(property), atom(type), 8,
                        static_cast<std::uint32_t>(value.size()), value.data());
}

void OwnWindow::retitle(const std::string& title) const {
    set("_NET_WM_NAME", "UTF8_STRING", title);
    xcb_flush(connection_);
}

void OwnWindow::ask(const char* type, std::uint32_t first, std::uint32_t second) const {
    const auto* screen = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data;
    xcb_client_message_event_t message{};
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 32;
    message.window = window_;
    message.type = atom(type);
    message.data.data32[0] = first;
    message.data.data32[1] = second;
    xcb_send_event(connection_, 0, screen->root,
                   XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT,
                   reinterpret_cast<const char*>(&message));
    xcb_flush(connection_);
}

// 2: from a pager, which window managers obey.
void OwnWindow::activate() const {
    ask("_NET_ACTIVE_WINDOW", 2, XCB_CURRENT_TIME);
}

void OwnWindow::fillScreen() const {
    ask("_NET_WM_STATE", 1, atom("_NET_WM_STATE_FULLSCREEN")); // 1: add
    const auto* screen = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data;
    const auto bound = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (std::chrono::steady_clock::now() < bound) {
        const x11::Reply<xcb_get_geometry_reply_t> place(
            xcb_get_geometry_reply(connection_, xcb_get_geometry(connection_, window_), nullptr));
        if (place && place->width == screen->width_in_pixels)
            return;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

DesktopSession::DesktopSession()
    : catalogue(std::make_shared<const ApplicationCatalogue>(
          std::make_shared<const DesktopEntries>(*listener))),
      session(std::make_shared<const SessionState>(*listener)),
      workspace(DesktopWorkspace::create(
          mainLoop, catalogue, session, [&](auto changed) -> std::unique_ptr<WindowSource> {
              if (!wayland::isWaylandSession())
                  return x11::FrontWindowWatcher::start(std::move(changed));
              return std::make_unique<wayland::SessionWindows>(wayland::SessionWindows::Options{
                  .accessible = windows, .catalogue = catalogue, .changed = std::move(changed)});
          })) {
    if (!workspace)
        return;
    titles = std::make_unique<FocusedWindowTitles>(windows, catalogue,
                                                   [this] { return workspace->lastFrontWindow(); });
    guard = std::make_unique<FrontContentGuard>(
        [this](auto patience) { return workspace->freshFrontWindow(patience); }, windows,
        catalogue);
}

std::optional<std::string> DesktopSession::frontTitle() {
    const auto front = workspace->frontmostApplication();
    const auto window = front ? titles->focusedWindow(front->processIdentifier) : std::nullopt;
    return window ? window->title : std::nullopt;
}

bool DesktopSession::waitForFront(const OwnWindow& window) {
    // A window manager may keep the focus from a window that nobody asked for.
    auto asked = std::chrono::steady_clock::now();
    return runUntil([&] {
        const auto front = workspace->freshFrontWindow(std::chrono::seconds(1));
        if (front && front->window == window.identifier())
            return true;
        if (std::chrono::steady_clock::now() - asked > std::chrono::milliseconds(300)) {
            window.activate();
            asked = std::chrono::steady_clock::now();
        }
        return false;
    });
}

} // namespace mnemora::desktop
