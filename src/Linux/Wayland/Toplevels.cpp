#include "Linux/Wayland/Toplevels.h"

#include "Linux/Desktop/FrontWindow.h"
#include "Log.h"
#include "Text/Encoding.h"

#include <algorithm>
#include <utility>
#include <wlr-foreign-toplevel-management-unstable-v1.h>

namespace mnemora::wayland {
namespace {

constexpr std::uint32_t knownVersion = 3;
// Nobody has as many; a list without end would take memory without end.
constexpr std::size_t maxWindows = 4096;

std::string bounded(std::string text) {
    if (text.size() <= desktop::maxMarkBytes)
        return text;
    text.resize(desktop::maxMarkBytes);
    return cleanText(text); // a character cut in two
}

} // namespace

struct Toplevels::Handle {
    Toplevels* owner = nullptr;
    zwlr_foreign_toplevel_handle_v1* proxy = nullptr; // owned
    ListedWindow pending;
    ListedWindow shown;
    bool isComplete = false; // described at least once
};

struct Toplevels::Listeners {
    using Proxy = zwlr_foreign_toplevel_handle_v1;

    static void toplevel(void* data, zwlr_foreign_toplevel_manager_v1*, Proxy* proxy) {
        auto* self = static_cast<Toplevels*>(data);
        if (self->handles_.size() >= maxWindows)
            self->giveUp();
        if (self->isFinished_)
            return zwlr_foreign_toplevel_handle_v1_destroy(proxy);
        Handle& handle = self->handles_.emplace_back();
        handle.owner = self;
        handle.proxy = proxy;
        handle.pending.number = ++self->lastNumber_;
        zwlr_foreign_toplevel_handle_v1_add_listener(proxy, &window, &handle);
    }
    static void finished(void* data, zwlr_foreign_toplevel_manager_v1*) {
        auto* self = static_cast<Toplevels*>(data);
        self->isFinished_ = true;
        ++self->changes_;
    }

    static void title(void* data, Proxy*, const char* text) {
        static_cast<Handle*>(data)->pending.title = cleanText(text);
    }
    static void application(void* data, Proxy*, const char* text) {
        static_cast<Handle*>(data)->pending.applicationId = bounded(cleanText(text));
    }
    static void output(void*, Proxy*, wl_output*) {}
    static void parent(void*, Proxy*, Proxy*) {}
    static void state(void* data, Proxy*, wl_array* states) {
        const auto* first = static_cast<const std::uint32_t*>(states->data);
        const auto* end = first + states->size / sizeof(std::uint32_t);
        const auto has = [&](std::uint32_t wanted) { return std::find(first, end, wanted) != end; };
        auto& pending = static_cast<Handle*>(data)->pending;
        pending.isActive = has(ZWLR_FOREIGN_TOPLEVEL_HANDLE_V1_STATE_ACTIVATED);
        pending.isMinimized = has(ZWLR_FOREIGN_TOPLEVEL_HANDLE_V1_STATE_MINIMIZED);
    }
    static void done(void* data, Proxy*) {
        auto* handle = static_cast<Handle*>(data);
        if (!handle->isComplete || isChange(handle->shown, handle->pending))
            ++handle->owner->changes_;
        handle->shown = handle->pending;
        handle->isComplete = true;
    }
    static void closed(void* data, Proxy* proxy) {
        auto* handle = static_cast<Handle*>(data);
        auto* owner = handle->owner;
        ++owner->changes_;
        zwlr_foreign_toplevel_handle_v1_destroy(proxy);
        owner->handles_.remove_if([&](const Handle& other) { return &other == handle; });
    }

    static constexpr zwlr_foreign_toplevel_manager_v1_listener list = {toplevel, finished};
    static constexpr zwlr_foreign_toplevel_handle_v1_listener window = {
        title, application, output, output, state, done, closed, parent};
};

std::unique_ptr<Toplevels> Toplevels::create(const Connection& connection) {
    auto* manager = connection.bind<zwlr_foreign_toplevel_manager_v1>(
        zwlr_foreign_toplevel_manager_v1_interface, knownVersion);
    if (manager == nullptr)
        return nullptr;
    return std::unique_ptr<Toplevels>(new Toplevels(manager));
}

Toplevels::Toplevels(zwlr_foreign_toplevel_manager_v1* manager) : manager_(manager) {
    zwlr_foreign_toplevel_manager_v1_add_listener(manager_, &Listeners::list, this);
}

/// A list that lacks windows could lack a private one.
void Toplevels::giveUp() {
    if (std::exchange(isFinished_, true))
        return;
    ++changes_;
    logError("the compositor lists too many windows: its list counts for nothing");
}

Toplevels::~Toplevels() {
    for (const Handle& handle : handles_)
        zwlr_foreign_toplevel_handle_v1_destroy(handle.proxy);
    zwlr_foreign_toplevel_manager_v1_destroy(manager_);
}

std::vector<ListedWindow> Toplevels::windows() const {
    std::vector<ListedWindow> all;
    for (const Handle& handle : handles_)
        if (handle.isComplete && !isFinished_)
            all.push_back(handle.shown);
    return all;
}

} // namespace mnemora::wayland
