#include "Linux/Screen/ScreenCastSession.h"

#include "Linux/Screen/PortalResults.h"
#include "Log.h"

#include <gio/gunixfdlist.h>
#include <utility>

namespace mnemora::portal {
namespace {

constexpr guint32 monitors = 1;     // types
constexpr guint32 hidden = 1;       // cursor_mode
constexpr guint32 untilRevoked = 2; // persist_mode

GVariantBuilder dictionary() {
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE_VARDICT);
    return builder;
}

void add(GVariantBuilder& builder, const char* name, GVariant* value) {
    g_variant_builder_add(&builder, "{sv}", name, value);
}

/// What the reply to OpenPipeWireRemote finds its way back by.
template <class Owner>
struct RemoteCall {
    std::weak_ptr<Owner> session;
    unsigned generation;
    std::uint32_t node;
};

} // namespace

void ScreenCastPortal::Session::createSession() {
    auto builder = dictionary();
    add(builder, "session_handle_token", g_variant_new_string(newHandle().c_str()));
    ask({.member = "CreateSession", .patience = options.stepPatience}, builder,
        &Session::selectSources, "a session");
}

void ScreenCastPortal::Session::selectSources(GVariant* created) {
    sessionPath = textOf(created, "session_handle");
    if (!g_variant_is_object_path(sessionPath.c_str())) {
        sessionPath.clear();
        return fail("the desktop's portal made no session");
    }
    closedSignal = desktop::listenToBus(
        bus.get(), {service, "org.freedesktop.portal.Session", "Closed", sessionPath, {}},
        [weak = weak_from_this()](const std::string&, const std::string&, GVariant*) {
            if (const auto self = weak.lock())
                self->closed();
        });
    auto builder = dictionary();
    add(builder, "types", g_variant_new_uint32(monitors));
    add(builder, "multiple", g_variant_new_boolean(FALSE));
    if (hidesCursor)
        add(builder, "cursor_mode", g_variant_new_uint32(hidden));
    if (restores)
        add(builder, "persist_mode", g_variant_new_uint32(untilRevoked));
    {
        const std::lock_guard lock(state.mutex);
        if (restores && !isDialog)
            add(builder, "restore_token", g_variant_new_string(state.token.c_str()));
    }
    ask({.member = "SelectSources", .session = sessionPath, .patience = options.stepPatience},
        builder, &Session::startCast, "a monitor");
}

void ScreenCastPortal::Session::startCast(GVariant*) {
    auto builder = dictionary();
    ask({.member = "Start",
         .session = sessionPath,
         .namesWindow = true,
         .patience = isDialog ? options.dialogPatience : options.restorePatience},
        builder, &Session::started, "the cast");
}

void ScreenCastPortal::Session::started(GVariant* results) {
    // The token that was handed over is used up, whatever comes now.
    keep(textOf(results, "restore_token"));
    const auto node = nodeOf(results);
    if (!node)
        return fail("the desktop's portal casts nothing");
    openRemote(*node);
}

void ScreenCastPortal::Session::ask(const Question& question, GVariantBuilder& builder,
                                    void (Session::*next)(GVariant*), const char* step) {
    request = portal::ask(bus.get(), question, builder,
                          [this, next, step, mine = generation,
                           weak = weak_from_this()](Answer answer, GVariant* results) {
                              const auto self = weak.lock();
                              if (!self || mine != generation)
                                  return;
                              if (answer == Answer::given)
                                  (this->*next)(results);
                              else
                                  unanswered(answer, step);
                          });
}

/// A token that was handed over and not taken is of no more use, and offering it again could show
/// a dialog that nobody asked for.
void ScreenCastPortal::Session::unanswered(Answer answer, const std::string& step) {
    const bool hasStarted = step == "the cast";
    if (answer == Answer::refused)
        return refuse("the screen may not be read: the desktop was told so");
    if (answer == Answer::failed && !sessionPath.empty())
        return refuse("the desktop's portal refused " + step);
    if (answer == Answer::late && hasStarted)
        return refuse(isDialog ? "nobody answered the desktop's question about the screen"
                               : "the desktop would ask about the screen again");
    fail("the desktop's portal gave no answer when asked for " + step);
}

void ScreenCastPortal::Session::openRemote(std::uint32_t node) {
    auto builder = dictionary();
    auto call = std::make_unique<RemoteCall<Session>>(
        RemoteCall<Session>{weak_from_this(), generation, node});
    g_dbus_connection_call_with_unix_fd_list(
        bus.get(), service, objectPath, castInterface, "OpenPipeWireRemote",
        g_variant_new("(oa{sv})", sessionPath.c_str(), &builder), G_VARIANT_TYPE("(h)"),
        G_DBUS_CALL_FLAGS_NONE, static_cast<gint>(options.stepPatience.count()), nullptr, nullptr,
        remoteReplied, call.release());
}

void ScreenCastPortal::Session::remoteReplied(GObject*, GAsyncResult* result, gpointer data) {
    const std::unique_ptr<RemoteCall<Session>> call(static_cast<RemoteCall<Session>*>(data));
    const auto self = call->session.lock();
    if (self && call->generation == self->generation)
        self->remoteOpened(result, call->node);
}

void ScreenCastPortal::Session::remoteOpened(GAsyncResult* result, std::uint32_t node) {
    GUnixFDList* list = nullptr;
    const desktop::GValueRef reply(
        g_dbus_connection_call_with_unix_fd_list_finish(bus.get(), &list, result, nullptr));
    const desktop::GRef<GUnixFDList> descriptors(list);
    if (!reply || !descriptors)
        return fail("the desktop's portal opened no way to PipeWire");
    gint32 index = 0;
    g_variant_get(reply.get(), "(h)", &index);
    FileDescriptor remote(index >= 0 && index < g_unix_fd_list_get_length(list)
                              ? g_unix_fd_list_get(list, index, nullptr)
                              : -1);
    if (!remote)
        return fail("the desktop's portal opened no way to PipeWire");
    std::string reason;
    auto stream = opener({std::move(remote), node, options.sendsChangesOnly}, reason);
    if (!stream)
        return fail(reason);
    request.reset();
    lastReason.clear();
    {
        const std::lock_guard lock(state.mutex);
        state.stream = std::move(stream);
        state.isStarting = false;
        state.failures = 0;
        state.status = {};
    }
    state.changed.notify_all();
    logInfo("the desktop lets the screen be read");
}

} // namespace mnemora::portal
