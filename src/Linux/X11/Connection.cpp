#include "Linux/X11/Connection.h"

#include "Linux/X11/Answers.h"
#include "Linux/X11/PropertyText.h"
#include "Text/Encoding.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <string_view>
#include <unistd.h>
#include <utility>
#include <xcb/dpms.h>
#include <xcb/res.h>
#include <xcb/screensaver.h>
#include <xcb/shape.h>
#include <xcb/xcb.h>

namespace mnemora::x11 {
namespace {

using desktop::maxMarkBytes;
using desktop::WindowIdentity;

// The program elides nothing that a person could read in a title bar; what lies beyond is noise
// or malice. Both ends are kept, for browsers put their own words last.
constexpr std::size_t maxTitleBytes = 65536;
constexpr std::size_t maxClients = 4096;

const char* connectionFailure(int error) {
    switch (error) {
    case XCB_CONN_CLOSED_PARSE_ERR:
        return "the display's name can't be read";
    case XCB_CONN_CLOSED_INVALID_SCREEN:
        return "the display has no such screen";
    default:
        return "the X server can't be reached";
    }
}

template <class Integer>
std::vector<Integer> numbers(const std::string& bytes) {
    std::vector<Integer> result(bytes.size() / sizeof(Integer));
    if (!result.empty())
        std::memcpy(result.data(), bytes.data(), result.size() * sizeof(Integer));
    return result;
}

} // namespace

void Connection::Disconnect::operator()(xcb_connection_t* connection) const {
    xcb_disconnect(connection);
}

std::unique_ptr<Connection> Connection::open(std::string* reason) {
    int screen = 0;
    std::unique_ptr<xcb_connection_t, Disconnect> opened(xcb_connect(nullptr, &screen));
    const int error = xcb_connection_has_error(opened.get());
    if (error != 0) {
        if (reason != nullptr)
            *reason = connectionFailure(error);
        return nullptr;
    }
    const auto* shown = screenOf(opened.get(), screen);
    if (shown == nullptr) {
        if (reason != nullptr)
            *reason = "the X server introduces itself with nonsense";
        return nullptr;
    }
    const Window root = shown->root;
    return std::unique_ptr<Connection>(new Connection(opened.release(), root, screen));
}

Connection::Connection(xcb_connection_t* connection, Window root, int screen)
    : connection_(connection), root_(root) {
    internAtoms(screen);
    queryExtensions();
}

void Connection::internAtoms(int screen) {
    const std::string compositor = "_NET_WM_CM_S" + std::to_string(screen);
    const std::array<std::string_view, 17> names = {"_NET_ACTIVE_WINDOW",
                                                    "_NET_CLIENT_LIST",
                                                    "_NET_WM_NAME",
                                                    "_NET_WM_PID",
                                                    "UTF8_STRING",
                                                    "COMPOUND_TEXT",
                                                    "_GTK_APPLICATION_ID",
                                                    "_KDE_NET_WM_DESKTOP_FILE",
                                                    "_NET_SUPPORTING_WM_CHECK",
                                                    "_NET_WM_DESKTOP",
                                                    "_NET_CURRENT_DESKTOP",
                                                    "_NET_WM_STATE",
                                                    "_NET_WM_STATE_HIDDEN",
                                                    "_NET_WM_WINDOW_OPACITY",
                                                    "_NET_WM_OPAQUE_REGION",
                                                    compositor,
                                                    "_NET_CLIENT_LIST_STACKING"};
    std::array<xcb_intern_atom_cookie_t, names.size()> asked;
    for (std::size_t i = 0; i < names.size(); ++i)
        asked[i] = xcb_intern_atom(connection_.get(), 0,
                                   static_cast<std::uint16_t>(names[i].size()), names[i].data());
    std::array<Atom, names.size()> atoms{};
    for (std::size_t i = 0; i < names.size(); ++i) {
        const Reply<xcb_intern_atom_reply_t> reply(
            xcb_intern_atom_reply(connection_.get(), asked[i], nullptr));
        atoms[i] = reply ? reply->atom : Atom(XCB_ATOM_NONE);
    }
    atoms_ = {atoms[0],  atoms[1],  atoms[2],  atoms[3],  atoms[4],  atoms[5],
              atoms[6],  atoms[7],  atoms[8],  atoms[9],  atoms[10], atoms[11],
              atoms[12], atoms[13], atoms[14], atoms[15], atoms[16]};
}

void Connection::queryExtensions() {
    auto* connection = connection_.get();
    const auto present = [&](xcb_extension_t* extension) {
        const auto* data = xcb_get_extension_data(connection, extension);
        return data != nullptr && data->present != 0;
    };
    hasPowerState_ = present(&xcb_dpms_id);
    hasScreenSaver_ = present(&xcb_screensaver_id);
    hasShapes_ = present(&xcb_shape_id);
    if (!present(&xcb_res_id))
        return;
    const Reply<xcb_res_query_version_reply_t> version(
        xcb_res_query_version_reply(connection, xcb_res_query_version(connection, 1, 2), nullptr));
    hasClientIds_ = version && (version->server_major > 1 || version->server_minor >= 2);
}

bool Connection::isAlive() const {
    return xcb_connection_has_error(connection_.get()) == 0;
}

int Connection::descriptor() const {
    return xcb_get_file_descriptor(connection_.get());
}

void Connection::followActiveWindow() {
    const std::uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_change_window_attributes(connection_.get(), root_, XCB_CW_EVENT_MASK, &mask);
    noticed_ = {atoms_.activeWindow, atoms_.clientList, atoms_.clientStacking,
                atoms_.currentDesktop};
    (void)countChanges();
    changes_ = 0;
}

void Connection::followTitle(Window window) {
    if (window == titled_)
        return;
    const auto listen = [this](Window to, std::uint32_t mask) {
        if (to != XCB_WINDOW_NONE && to != root_)
            xcb_change_window_attributes(connection_.get(), to, XCB_CW_EVENT_MASK, &mask);
    };
    listen(std::exchange(titled_, window), XCB_EVENT_MASK_NO_EVENT);
    listen(window, XCB_EVENT_MASK_PROPERTY_CHANGE);
    xcb_flush(connection_.get());
}

bool Connection::takeNotices() {
    bool changed = false;
    while (const Reply<xcb_generic_event_t> event{xcb_poll_for_event(connection_.get())}) {
        if ((event->response_type & 0x7f) != XCB_PROPERTY_NOTIFY)
            continue; // errors of requests without an answer come this way too
        const auto* notice = reinterpret_cast<const xcb_property_notify_event_t*>(event.get());
        if (notice->window != root_) {
            isRetitled_ = isRetitled_ ||
                          (notice->window == titled_ &&
                           (notice->atom == atoms_.windowName || notice->atom == XCB_ATOM_WM_NAME));
            continue;
        }
        changed = changed || notice->atom == atoms_.activeWindow;
        if (notice->atom == atoms_.activeWindow || notice->atom == atoms_.clientList ||
            notice->atom == atoms_.clientStacking || notice->atom == atoms_.currentDesktop)
            noticed_.insert(notice->atom);
    }
    return changed;
}

std::uint64_t Connection::countChanges() {
    for (const Atom name : std::exchange(noticed_, {})) {
        auto list = property(root_, name, maxClients * sizeof(Window));
        std::string content = list ? std::move(list->bytes) : std::string();
        if (std::exchange(windowLists_[name], content) != content)
            ++changes_;
    }
    return changes_;
}

std::optional<Property> Connection::property(Window window, Atom name, std::size_t maxBytes) {
    auto* connection = connection_.get();
    const auto words = static_cast<std::uint32_t>(maxBytes / 4);
    Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
        connection, xcb_get_property(connection, 0, window, name, XCB_ATOM_ANY, 0, words),
        nullptr));
    if (!reply || reply->type == XCB_ATOM_NONE)
        return std::nullopt;
    const auto append = [](std::string& bytes, const xcb_get_property_reply_t* answer,
                           std::size_t asked) {
        const auto length = answer->value_len * std::uint64_t{answer->format} / 8;
        if (length <= asked && holds(*answer, length))
            bytes.append(static_cast<const char*>(xcb_get_property_value(answer)), length);
    };
    Property result{reply->type, {}};
    append(result.bytes, reply.get(), words * std::size_t{4});
    if (reply->bytes_after == 0)
        return result;
    const std::uint32_t tail = std::min<std::uint32_t>(words / 4, reply->bytes_after / 4);
    const std::uint32_t from = words + reply->bytes_after / 4 - tail;
    reply.reset(xcb_get_property_reply(
        connection, xcb_get_property(connection, 0, window, name, XCB_ATOM_ANY, from, tail + 1),
        nullptr));
    if (reply)
        append(result.bytes, reply.get(), (tail + std::size_t{1}) * 4);
    return result;
}

std::optional<Window> Connection::activeWindow() {
    const auto stated = property(root_, atoms_.activeWindow, sizeof(Window));
    if (!stated)
        return property(root_, atoms_.supportingManager, sizeof(Window)) ? std::nullopt
                                                                         : focusedTopLevel();
    const auto windows = numbers<Window>(stated->bytes);
    if (windows.empty() || windows.front() == XCB_WINDOW_NONE)
        return std::nullopt;
    return windows.front();
}

std::optional<Window> Connection::focusedTopLevel() {
    auto* connection = connection_.get();
    const Reply<xcb_get_input_focus_reply_t> focus(
        xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr));
    if (!focus || focus->focus <= XCB_INPUT_FOCUS_POINTER_ROOT)
        return std::nullopt;
    constexpr int maxDepth = 32;
    Window window = focus->focus;
    for (int depth = 0; depth < maxDepth && window != root_; ++depth) {
        if (property(window, XCB_ATOM_WM_CLASS, maxMarkBytes))
            return window;
        const Reply<xcb_query_tree_reply_t> tree(
            xcb_query_tree_reply(connection, xcb_query_tree(connection, window), nullptr));
        if (!tree || tree->parent == XCB_WINDOW_NONE)
            return std::nullopt;
        window = tree->parent;
    }
    return std::nullopt;
}

std::vector<Window> Connection::clients() {
    const auto list = property(root_, atoms_.clientList, maxClients * sizeof(Window));
    return list ? numbers<Window>(list->bytes) : std::vector<Window>();
}

std::string Connection::mark(Window window, Atom name) {
    const auto value = property(window, name, maxMarkBytes);
    return value ? cleanText(value->bytes) : std::string();
}

bool Connection::isLocal(Window window) {
    std::array<char, 256> name{};
    const auto machine = property(window, XCB_ATOM_WM_CLIENT_MACHINE, maxMarkBytes);
    return machine && gethostname(name.data(), name.size() - 1) == 0 &&
           machine->bytes == std::string_view(name.data());
}

// The server knows who is at the other end of a connection; the property is only what the client
// claims, is missing in some, and means nothing when the client runs on another machine.
int Connection::processOf(Window window) {
    if (hasClientIds_) {
        auto* connection = connection_.get();
        const xcb_res_client_id_spec_t spec{window, XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID};
        const Reply<xcb_res_query_client_ids_reply_t> reply(xcb_res_query_client_ids_reply(
            connection, xcb_res_query_client_ids(connection, 1, &spec), nullptr));
        // The one that was asked for, its number behind it.
        if (reply && reply->num_ids >= 1 &&
            holds(*reply, sizeof(xcb_res_client_id_value_t) + sizeof(std::uint32_t))) {
            const auto* id = xcb_res_query_client_ids_ids_iterator(reply.get()).data;
            if ((id->spec.mask & XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID) != 0 && id->length >= 4)
                return static_cast<int>(*xcb_res_client_id_value_value(id));
        }
    }
    const auto claimed = property(window, atoms_.windowPid, sizeof(std::uint32_t));
    if (!claimed || claimed->bytes.size() < sizeof(std::uint32_t) || !isLocal(window))
        return 0;
    return static_cast<int>(numbers<std::uint32_t>(claimed->bytes).front());
}

std::optional<WindowIdentity> Connection::identity(Window window) {
    const auto classes = property(window, XCB_ATOM_WM_CLASS, 2 * maxMarkBytes);
    WindowIdentity result;
    if (classes)
        std::tie(result.instance, result.windowClass) = instanceAndClass(classes->bytes);
    result.desktopId = mark(window, atoms_.gtkApplicationId);
    if (result.desktopId.empty())
        result.desktopId = mark(window, atoms_.kdeDesktopFile);
    result.process.processIdentifier = processOf(window);
    const bool knowsNothing =
        !classes && result.desktopId.empty() && result.process.processIdentifier == 0;
    if (knowsNothing) {
        const Reply<xcb_get_geometry_reply_t> alive(xcb_get_geometry_reply(
            connection_.get(), xcb_get_geometry(connection_.get(), window), nullptr));
        if (!alive)
            return std::nullopt;
    }
    return result;
}

std::string Connection::text(const Property& property) const {
    if (property.type == atoms_.compoundText)
        return fromCompoundText(property.bytes);
    if (property.type == XCB_ATOM_STRING)
        return fromLatin1(property.bytes);
    return property.bytes;
}

std::optional<std::string> Connection::title(Window window) {
    auto value = property(window, atoms_.windowName, maxTitleBytes);
    if (!value)
        value = property(window, XCB_ATOM_WM_NAME, maxTitleBytes);
    if (!value)
        return std::nullopt;
    return cleanText(text(*value));
}

} // namespace mnemora::x11
