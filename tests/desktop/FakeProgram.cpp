#include "desktop/FakeProgram.h"

#include <string_view>
#include <sys/socket.h>

namespace mnemora::desktop {
namespace {

constexpr const char* window = "/test/window";
constexpr guint32 active = 1U << 1; // ATSPI_STATE_ACTIVE

std::string accessibilityBusAddress() {
    const GRef<GDBusConnection> session(g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr));
    if (!session)
        return {};
    const GValueRef reply(g_dbus_connection_call_sync(
        session.get(), "org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus", "GetAddress", nullptr,
        G_VARIANT_TYPE("(s)"), G_DBUS_CALL_FLAGS_NONE, 10'000, nullptr, nullptr));
    const gchar* address = "";
    if (reply)
        g_variant_get(reply.get(), "(&s)", &address);
    return address;
}

GRef<GDBusConnection> accessibilityBus() {
    constexpr auto flags =
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    return GRef<GDBusConnection>(g_dbus_connection_new_for_address_sync(
        accessibilityBusAddress().c_str(), flags, nullptr, nullptr, nullptr));
}

} // namespace

FakeProgram::FakeProgram() : bus_(accessibilityBus()) {
    if (!bus_)
        return;
    behave("");
    const auto filtered = [](GDBusConnection*, GDBusMessage* message, gboolean incoming,
                             gpointer self) -> GDBusMessage* {
        const bool isCall = incoming != FALSE && g_dbus_message_get_message_type(message) ==
                                                     G_DBUS_MESSAGE_TYPE_METHOD_CALL;
        return isCall ? static_cast<FakeProgram*>(self)->take(message) : message;
    };
    filter_ = g_dbus_connection_add_filter(bus_.get(), filtered, this, nullptr);
}

FakeProgram::~FakeProgram() {
    if (!bus_)
        return;
    g_dbus_connection_remove_filter(bus_.get(), filter_);
    g_dbus_connection_close_sync(bus_.get(), nullptr, nullptr);
}

const char* FakeProgram::service() const {
    return g_dbus_connection_get_unique_name(bus_.get());
}

GVariant* FakeProgram::objects(const std::string& service, const std::string& path, int count) {
    GVariantBuilder list;
    g_variant_builder_init(&list, G_VARIANT_TYPE("a(so)"));
    for (int i = 0; i < count; ++i)
        g_variant_builder_add(&list, "(so)", service.c_str(), path.c_str());
    return g_variant_new("(a(so))", &list);
}

void FakeProgram::behave(const std::string& title) {
    answer({.children = [this] { return objects(service(), window); },
            .name = [title] { return g_variant_new("(v)", g_variant_new_string(title.c_str())); },
            .state =
                [] {
                    const guint32 words[] = {active, 0};
                    return g_variant_new("(@au)",
                                         g_variant_new_fixed_array(G_VARIANT_TYPE_UINT32, words, 2,
                                                                   sizeof words[0]));
                }});
}

void FakeProgram::hang() {
    const auto nothing = [] { return static_cast<GVariant*>(nullptr); };
    answer({nothing, nothing, nothing});
}

void FakeProgram::answer(Replies replies) {
    const std::lock_guard lock(mutex_);
    replies_ = std::move(replies);
}

bool FakeProgram::join() {
    const char* root = "/org/a11y/atspi/accessible/root";
    const GValueRef reply(g_dbus_connection_call_sync(
        bus_.get(), "org.a11y.atspi.Registry", root, "org.a11y.atspi.Socket", "Embed",
        g_variant_new("((so))", service(), root), nullptr, G_DBUS_CALL_FLAGS_NONE, 10'000, nullptr,
        nullptr));
    return reply != nullptr;
}

void FakeProgram::announce(int times) {
    for (int i = 0; i < times; ++i)
        g_dbus_connection_emit_signal(
            bus_.get(), nullptr, window, "org.a11y.atspi.Event.Window", "Activate",
            g_variant_new("(siiv(so))", "", 0, 0, g_variant_new_int32(0), service(), window),
            nullptr);
    g_dbus_connection_flush_sync(bus_.get(), nullptr, nullptr);
}

// Whatever is called is answered from here; nothing reaches the library's own dispatcher.
GDBusMessage* FakeProgram::take(GDBusMessage* call) {
    const GRef<GDBusMessage> owned(call);
    const std::string_view member = g_dbus_message_get_member(call);
    if (member == "GetChildren")
        ++surveys_;
    Reply reply;
    {
        const std::lock_guard lock(mutex_);
        reply = member == "GetChildren" ? replies_.children
                : member == "Get"       ? replies_.name
                                        : replies_.state;
    }
    if (GVariant* body = reply(); body != nullptr) {
        const GRef<GDBusMessage> answer(g_dbus_message_new_method_reply(call));
        g_dbus_message_set_body(answer.get(), body);
        g_dbus_connection_send_message(bus_.get(), answer.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE,
                                       nullptr, nullptr);
    }
    return nullptr;
}

int accessibilityBusProcess() {
    const auto bus = accessibilityBus();
    if (!bus)
        return 0;
    GSocket* socket = g_socket_connection_get_socket(
        G_SOCKET_CONNECTION(g_dbus_connection_get_stream(bus.get())));
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(g_socket_get_fd(socket), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
        return 0;
    g_dbus_connection_close_sync(bus.get(), nullptr, nullptr);
    return peer.pid;
}

int accessibilityServiceProcess() {
    const GRef<GDBusConnection> session(g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr));
    if (!session)
        return 0;
    const GValueRef answer(g_dbus_connection_call_sync(
        session.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "GetConnectionUnixProcessID", g_variant_new("(s)", "org.a11y.Bus"), G_VARIANT_TYPE("(u)"),
        G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
    guint32 process = 0;
    if (answer)
        g_variant_get(answer.get(), "(u)", &process);
    return static_cast<int>(process);
}

} // namespace mnemora::desktop
