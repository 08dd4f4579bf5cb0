#include "Screen/FakePortal.h"

#include "Linux/Desktop/GLibHandles.h"
#include "Support/FileDescriptor.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <gio/gunixfdlist.h>
#include <sys/mman.h>

namespace mnemora::test {
namespace {

constexpr const char* busVariable = "DBUS_SESSION_BUS_ADDRESS";
constexpr const char* portalPath = "/org/freedesktop/portal/desktop";
constexpr const char* description = R"(<node>
<interface name='org.freedesktop.portal.ScreenCast'>
  <method name='CreateSession'><arg type='a{sv}' direction='in'/><arg type='o' direction='out'/></method>
  <method name='SelectSources'><arg type='o' direction='in'/><arg type='a{sv}' direction='in'/><arg type='o' direction='out'/></method>
  <method name='Start'><arg type='o' direction='in'/><arg type='s' direction='in'/><arg type='a{sv}' direction='in'/><arg type='o' direction='out'/></method>
  <method name='OpenPipeWireRemote'><arg type='o' direction='in'/><arg type='a{sv}' direction='in'/><arg type='h' direction='out'/></method>
  <property name='AvailableSourceTypes' type='u' access='read'/>
  <property name='AvailableCursorModes' type='u' access='read'/>
  <property name='version' type='u' access='read'/>
</interface>
<interface name='org.freedesktop.host.portal.Registry'>
  <method name='Register'><arg type='s' direction='in'/><arg type='a{sv}' direction='in'/></method>
</interface>
<interface name='org.freedesktop.portal.Request'><method name='Close'/></interface>
<interface name='org.freedesktop.portal.Session'><method name='Close'/></interface>
</node>)";

std::string variable(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

void restore(const char* name, const std::string& value) {
    value.empty() ? unsetenv(name) : setenv(name, value.c_str(), 1);
}

} // namespace

PrivateBus::PrivateBus()
    : former_(variable(busVariable)), runtimeFolder_(variable("XDG_RUNTIME_DIR")),
      bus_(g_test_dbus_new(G_TEST_DBUS_NONE)) {
    g_test_dbus_up(bus_);
    restore("XDG_RUNTIME_DIR", runtimeFolder_);
}

PrivateBus::~PrivateBus() {
    g_test_dbus_stop(bus_);
    g_object_unref(bus_);
    restore("XDG_RUNTIME_DIR", runtimeFolder_);
    restore(busVariable, former_);
}

struct FakePortal::Handlers {
    static void called(GDBusConnection*, const gchar*, const gchar*, const gchar* interface,
                       const gchar* member, GVariant* arguments, GDBusMethodInvocation* call,
                       gpointer data) {
        const bool isClosing = std::strcmp(member, "Close") == 0;
        const std::string kind = interface;
        static_cast<FakePortal*>(data)->handle(
            isClosing ? "Close" + kind.substr(kind.rfind('.') + 1) : member, arguments, call);
    }
    static GVariant* property(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                              const gchar* name, GError**, gpointer data) {
        auto* self = static_cast<FakePortal*>(data);
        const std::lock_guard lock(self->mutex_);
        const bool isSources = std::strcmp(name, "AvailableSourceTypes") == 0;
        return g_variant_new_uint32(isSources ? self->behaviour_.sources : 4U + 1U);
    }
    static constexpr GDBusInterfaceVTable table = {called, property, nullptr, {}};
};

FakePortal::FakePortal() {
    thread_.invokeAndWait([this] { connect(); });
}

FakePortal::~FakePortal() {
    thread_.invokeAndWait([this] {
        g_dbus_connection_close_sync(bus_, nullptr, nullptr);
        g_object_unref(bus_);
    });
}

void FakePortal::connect() {
    const desktop::GText address(
        g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SESSION, nullptr, nullptr));
    bus_ = g_dbus_connection_new_for_address_sync(
        address.get(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, nullptr);
    GDBusNodeInfo* node = g_dbus_node_info_new_for_xml(description, nullptr);
    for (const char* interface :
         {"org.freedesktop.portal.ScreenCast", "org.freedesktop.host.portal.Registry"})
        g_dbus_connection_register_object(bus_, portalPath,
                                          g_dbus_node_info_lookup_interface(node, interface),
                                          &Handlers::table, this, nullptr, nullptr);
    for (const char* session : {"/session/1", "/session/2"})
        g_dbus_connection_register_object(
            bus_, session,
            g_dbus_node_info_lookup_interface(node, "org.freedesktop.portal.Session"),
            &Handlers::table, this, nullptr, nullptr);
    g_dbus_node_info_unref(node);
    const desktop::GValueRef reply(g_dbus_connection_call_sync(
        bus_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "RequestName", g_variant_new("(su)", "org.freedesktop.portal.Desktop", 0), nullptr,
        G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
}

void FakePortal::behave(const std::function<void(Behaviour&)>& change) {
    const std::lock_guard lock(mutex_);
    change(behaviour_);
}

std::vector<FakePortal::Call> FakePortal::calls() const {
    const std::lock_guard lock(mutex_);
    return calls_;
}

int FakePortal::count(const std::string& member) const {
    const auto all = calls();
    return static_cast<int>(std::ranges::count(all, member, &Call::member));
}

std::string FakePortal::last(const std::string& member) const {
    std::string found;
    for (const auto& call : calls())
        if (call.member == member)
            found = call.arguments;
    return found;
}

void FakePortal::freeze() {
    thawed_ = {};
    thread_.invoke([thawed = thawed_.get_future().share()] { thawed.wait(); });
}

void FakePortal::thaw() {
    thawed_.set_value();
}

void FakePortal::closeSession() {
    thread_.invokeAndWait([this] {
        g_dbus_connection_emit_signal(bus_, client_.c_str(), "/session/1",
                                      "org.freedesktop.portal.Session", "Closed",
                                      g_variant_new("(a{sv})", nullptr), nullptr);
    });
}

void FakePortal::handle(const std::string& member, GVariant* arguments,
                        GDBusMethodInvocation* call) {
    const desktop::GText printed(g_variant_print(arguments, FALSE));
    client_ = g_dbus_method_invocation_get_sender(call);
    Behaviour now;
    {
        const std::lock_guard lock(mutex_);
        calls_.push_back({member, printed.get()});
        now = behaviour_;
    }
    if (member == "Register" && !now.knowsApplications)
        return g_dbus_method_invocation_return_error(call, G_DBUS_ERROR,
                                                     G_DBUS_ERROR_UNKNOWN_METHOD, "unknown");
    if (member == "OpenPipeWireRemote")
        return openRemote(call);
    if (member == "Register" || member.starts_with("Close"))
        return g_dbus_method_invocation_return_value(call, nullptr);
    const auto request = requestOf(arguments, client_);
    g_dbus_method_invocation_return_value(call, g_variant_new("(o)", request.c_str()));
    if (member != now.hangsAt)
        respond(member, request, client_);
}

std::string FakePortal::requestOf(GVariant* arguments, const std::string& sender) {
    const desktop::GValueRef options(
        g_variant_get_child_value(arguments, g_variant_n_children(arguments) - 1));
    const gchar* token = "";
    g_variant_lookup(options.get(), "handle_token", "&s", &token);
    std::string name = sender.substr(1);
    std::ranges::replace(name, '.', '_');
    const auto path = std::string(portalPath) + "/request/" + name + "/" + token;
    GDBusNodeInfo* node = g_dbus_node_info_new_for_xml(description, nullptr);
    g_dbus_connection_register_object(
        bus_, path.c_str(),
        g_dbus_node_info_lookup_interface(node, "org.freedesktop.portal.Request"), &Handlers::table,
        this, nullptr, nullptr);
    g_dbus_node_info_unref(node);
    return path;
}

void FakePortal::respond(const std::string& member, const std::string& request,
                         const std::string& sender) {
    Behaviour now;
    {
        const std::lock_guard lock(mutex_);
        now = behaviour_;
    }
    const bool isRefused = member == now.refusesAt;
    const std::string results = isRefused || member == "SelectSources" ? "@a{sv} {}"
                                : member == "CreateSession"            ? now.created
                                                                       : now.started;
    const auto text =
        "(uint32 " + std::to_string(isRefused ? now.response : 0) + ", " + results + ")";
    GVariant* response = g_variant_parse(nullptr, text.c_str(), nullptr, nullptr, nullptr);
    g_dbus_connection_emit_signal(bus_, sender.c_str(), request.c_str(),
                                  "org.freedesktop.portal.Request", "Response", response, nullptr);
}

void FakePortal::openRemote(GDBusMethodInvocation* call) {
    {
        const std::lock_guard lock(mutex_);
        if (!behaviour_.opensRemote)
            return g_dbus_method_invocation_return_error(call, G_DBUS_ERROR, G_DBUS_ERROR_FAILED,
                                                         "no");
    }
    const FileDescriptor remote(memfd_create("remote", MFD_CLOEXEC)); // any will do
    const desktop::GRef<GUnixFDList> list(g_unix_fd_list_new());
    g_unix_fd_list_append(list.get(), remote.get(), nullptr);
    g_dbus_method_invocation_return_value_with_unix_fd_list(call, g_variant_new("(h)", 0),
                                                            list.get());
}

} // namespace mnemora::test
