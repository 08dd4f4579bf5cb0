#include "Linux/X11/Connection.h"

#include "Linux/X11/Answers.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>
#include <utility>
#include <xcb/shape.h>
#include <xcb/xcb.h>

namespace mnemora::x11 {
namespace {

using desktop::Area;
using desktop::FrontWindow;
using desktop::Rectangle;
using desktop::WindowIdentity;
using desktop::WindowStack;

// A desktop has some tens of windows on the screen and some hundreds that aren't.
constexpr std::size_t maxTopLevels = 4096;

template <class Integer>
std::vector<Integer> numbersIn(const std::string& bytes) {
    std::vector<Integer> result(bytes.size() / sizeof(Integer));
    if (!result.empty())
        std::memcpy(result.data(), bytes.data(), result.size() * sizeof(Integer));
    return result;
}

/// Asks about all before the first answer is awaited, so that many windows cost one round trip.
template <class Answer, class Item, class Cookie>
std::vector<Reply<Answer>> answers(xcb_connection_t* connection, const std::vector<Item>& items,
                                   Cookie (*ask)(xcb_connection_t*, xcb_window_t),
                                   Answer* (*answer)(xcb_connection_t*, Cookie,
                                                     xcb_generic_error_t**)) {
    std::vector<Cookie> asked;
    asked.reserve(items.size());
    for (const Item& item : items)
        asked.push_back(ask(connection, item));
    std::vector<Reply<Answer>> replies;
    replies.reserve(items.size());
    for (const Cookie cookie : asked)
        replies.emplace_back(answer(connection, cookie, nullptr));
    return replies;
}

} // namespace

/// A child of the root window that is on the screen: a frame, or a window without one.
struct Connection::TopLevel {
    Window window = 0;
    std::vector<Window> clients = {}; // those that the window manager manages in it
    Rectangle place;
    std::uint8_t depth = 0;
};

/// The children of the root window that are on the screen, lowest first.
std::optional<std::vector<Window>> Connection::viewableTopLevels() {
    const auto windows = children(root_);
    if (windows.empty() || windows.size() > maxTopLevels)
        return std::nullopt;
    const auto attributes = answers(connection_.get(), windows, xcb_get_window_attributes,
                                    xcb_get_window_attributes_reply);
    std::vector<Window> viewable;
    for (std::size_t i = 0; i < windows.size(); ++i)
        if (attributes[i] && attributes[i]->map_state == XCB_MAP_STATE_VIEWABLE &&
            attributes[i]->_class == XCB_WINDOW_CLASS_INPUT_OUTPUT)
            viewable.push_back(windows[i]);
    return viewable;
}

std::optional<std::vector<Connection::TopLevel>> Connection::topLevelsOnScreen() {
    const auto windows = viewableTopLevels();
    if (!windows)
        return std::nullopt;
    const auto& viewable = *windows;
    const auto places =
        answers(connection_.get(), viewable, xcb_get_geometry, xcb_get_geometry_reply);
    std::vector<TopLevel> result;
    for (std::size_t i = 0; i < viewable.size(); ++i)
        if (const auto& place = places[i])
            result.push_back({viewable[i],
                              {},
                              {place->x, place->y, place->width + 2 * place->border_width,
                               place->height + 2 * place->border_width},
                              place->depth});
    return result;
}

// Upwards from the clients: window managers nest their frames differently.
void Connection::findClients(std::vector<TopLevel>& topLevels) {
    constexpr int maxDepth = 8;
    const auto clients = this->clients();
    auto at = clients;
    for (int depth = 0; depth < maxDepth && !at.empty(); ++depth) {
        const auto trees = answers(connection_.get(), at, xcb_query_tree, xcb_query_tree_reply);
        bool isDone = true;
        for (std::size_t i = 0; i < at.size(); ++i) {
            const bool isBelow = trees[i] && trees[i]->parent != root_ && at[i] != XCB_WINDOW_NONE;
            if (isBelow && trees[i]->parent != XCB_WINDOW_NONE) {
                at[i] = trees[i]->parent;
                isDone = false;
            }
        }
        if (isDone)
            break;
    }
    const bool isManaged = property(root_, atoms_.supportingManager, sizeof(Window)).has_value();
    for (TopLevel& topLevel : topLevels) {
        for (std::size_t i = 0; i < at.size(); ++i)
            if (at[i] == topLevel.window)
                topLevel.clients.push_back(clients[i]);
        // Nobody lists the clients: then whatever names its class is one.
        if (!isManaged && topLevel.clients.empty())
            if (const auto client = namedWindow(topLevel.window))
                topLevel.clients.push_back(*client);
    }
}

/// The window itself or the first below it that has a class, a few levels deep.
std::optional<Window> Connection::namedWindow(Window window) {
    constexpr int maxDepth = 3;
    constexpr std::size_t maxWindows = 64;
    std::vector<Window> level = {window};
    for (int depth = 0; depth <= maxDepth && !level.empty(); ++depth) {
        std::vector<Window> below;
        for (const Window candidate : level) {
            if (property(candidate, XCB_ATOM_WM_CLASS, desktop::maxMarkBytes))
                return candidate;
            const auto inside = children(candidate);
            below.insert(below.end(), inside.begin(), inside.end());
        }
        below.resize(std::min(below.size(), maxWindows));
        level = std::move(below);
    }
    return std::nullopt;
}

std::optional<std::uint32_t> Connection::number(Window window, Atom name) {
    const auto value = property(window, name, sizeof(std::uint32_t));
    if (!value || value->bytes.size() < sizeof(std::uint32_t))
        return std::nullopt;
    return numbersIn<std::uint32_t>(value->bytes).front();
}

// Some compositing window managers keep the windows of other desktops mapped. With those that are
// not among them (i3, bspwm, awesome) each monitor may show a desktop of its own, of which only one
// is the current one, and whatever is mapped is seen.
bool Connection::mapsUnseenDesktops() {
    constexpr std::string_view managers[] = {"GNOME Shell", "Mutter",   "Cinnamon", "KWin",
                                             "Xfwm4",       "Metacity", "Marco",    "compiz"};
    const auto window = number(root_, atoms_.supportingManager);
    const auto name = window ? title(*window).value_or("") : std::string();
    return std::any_of(std::begin(managers), std::end(managers),
                       [&](std::string_view manager) { return name.starts_with(manager); });
}

bool Connection::isElsewhere(Window client, bool isOneDesktopSeen) {
    constexpr std::uint32_t everyDesktop = 0xFFFFFFFF;
    constexpr std::size_t maxStates = 32;
    if (isOneDesktopSeen) {
        const auto desktop = number(client, atoms_.desktop);
        const auto current = number(root_, atoms_.currentDesktop);
        if (desktop && current && *desktop != everyDesktop && *desktop != *current)
            return true;
    }
    const auto states = property(client, atoms_.state, maxStates * sizeof(Atom));
    const auto atoms = states ? numbersIn<Atom>(states->bytes) : std::vector<Atom>();
    return std::find(atoms.begin(), atoms.end(), atoms_.stateHidden) != atoms.end();
}

/// What the client itself says is opaque, at its place on the screen.
Area Connection::opaqueRegion(const TopLevel& topLevel) {
    constexpr std::size_t maxRectangles = 64;
    const Window client = topLevel.clients.empty() ? topLevel.window : topLevel.clients.front();
    const auto region = property(client, atoms_.opaqueRegion, maxRectangles * 16);
    if (!region)
        return {};
    auto* connection = connection_.get();
    const Reply<xcb_translate_coordinates_reply_t> origin(xcb_translate_coordinates_reply(
        connection, xcb_translate_coordinates(connection, client, root_, 0, 0), nullptr));
    if (!origin)
        return {};
    Area area;
    const auto numbers = numbersIn<std::int32_t>(region->bytes);
    for (std::size_t i = 0; i + 4 <= numbers.size(); i += 4) {
        constexpr int bound = 65535;
        const auto bounded = [&](std::size_t at) { return std::clamp(numbers[at], 0, bound); };
        area.push_back(intersection(topLevel.place,
                                    {origin->dst_x + bounded(i), origin->dst_y + bounded(i + 1),
                                     bounded(i + 2), bounded(i + 3)}));
    }
    return area;
}

Area Connection::coverOf(const TopLevel& topLevel, bool isComposited) {
    auto* connection = connection_.get();
    if (isComposited) {
        constexpr std::uint8_t depthWithAlpha = 32;
        const auto isTranslucent = [&](Window window) {
            return number(window, atoms_.opacity).value_or(0xFFFFFFFF) != 0xFFFFFFFF;
        };
        if (isTranslucent(topLevel.window) ||
            std::any_of(topLevel.clients.begin(), topLevel.clients.end(), isTranslucent))
            return {};
        if (topLevel.depth == depthWithAlpha)
            return opaqueRegion(topLevel);
    }
    if (!hasShapes_)
        return {topLevel.place};
    const Reply<xcb_shape_query_extents_reply_t> extents(xcb_shape_query_extents_reply(
        connection, xcb_shape_query_extents(connection, topLevel.window), nullptr));
    if (!extents || extents->bounding_shaped == 0)
        return extents ? Area{topLevel.place} : Area{};
    const Reply<xcb_shape_get_rectangles_reply_t> shape(xcb_shape_get_rectangles_reply(
        connection, xcb_shape_get_rectangles(connection, topLevel.window, XCB_SHAPE_SK_BOUNDING),
        nullptr));
    if (!shape || !holds(*shape, shape->rectangles_len * sizeof(xcb_rectangle_t)))
        return {};
    constexpr int maxRectangles = 64; // of a ragged shape the rest counts as see-through
    const auto* rectangles = xcb_shape_get_rectangles_rectangles(shape.get());
    const int count =
        std::min(xcb_shape_get_rectangles_rectangles_length(shape.get()), maxRectangles);
    Area area;
    for (int i = 0; i < count; ++i)
        area.push_back({topLevel.place.left + rectangles[i].x, topLevel.place.top + rectangles[i].y,
                        rectangles[i].width, rectangles[i].height});
    return area;
}

std::optional<WindowStack> Connection::stack(const Identify& identify) {
    auto* connection = connection_.get();
    auto topLevels = topLevelsOnScreen();
    if (!topLevels)
        return std::nullopt;
    findClients(*topLevels);
    const Reply<xcb_get_selection_owner_reply_t> compositor(xcb_get_selection_owner_reply(
        connection, xcb_get_selection_owner(connection, atoms_.compositor), nullptr));
    if (!compositor)
        return std::nullopt;
    const bool isComposited = compositor->owner != XCB_WINDOW_NONE;
    const bool isOneDesktopSeen = isComposited && mapsUnseenDesktops();
    WindowStack stack;
    stack.active = activeWindow().value_or(XCB_WINDOW_NONE);
    for (TopLevel& topLevel : *topLevels) {
        const bool isFrame = !topLevel.clients.empty();
        if (isComposited)
            std::erase_if(topLevel.clients,
                          [&](Window client) { return isElsewhere(client, isOneDesktopSeen); });
        if (isFrame && topLevel.clients.empty())
            continue;
        // Clients that share a frame hide nothing of each other.
        Area cover = coverOf(topLevel, isComposited);
        const auto add = [&](Window subject, Window client) {
            FrontWindow window{client, identify(subject).value_or(WindowIdentity()),
                               title(subject)};
            stack.windows.push_back(
                {std::move(window), topLevel.place, std::exchange(cover, Area())});
        };
        for (const Window client : topLevel.clients)
            add(client, client);
        if (!isFrame)
            add(topLevel.window, XCB_WINDOW_NONE);
    }
    return stack;
}

} // namespace mnemora::x11
