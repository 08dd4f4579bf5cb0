#include "Linux/Accessibility/AccessibilityBus.h"

#include "Text/Encoding.h"

#include <string_view>

namespace mnemora::atspi {
namespace {

using desktop::BusMatch;
using desktop::callBus;
using desktop::GValueRef;
using desktop::listenToBus;

constexpr const char* properties = "org.freedesktop.DBus.Properties";
constexpr const char* busService = "org.a11y.Bus";
constexpr const char* busPath = "/org/a11y/bus";
constexpr const char* statusInterface = "org.a11y.Status";
constexpr const char* registryService = "org.a11y.atspi.Registry";
constexpr const char* registryPath = "/org/a11y/atspi/registry";
constexpr const char* rootPath = "/org/a11y/atspi/accessible/root";
constexpr const char* accessibleInterface = "org.a11y.atspi.Accessible";
constexpr const char* windowEvents = "org.a11y.atspi.Event.Window";
constexpr int daemonPatienceMs = 3000; // starting the bus is included
constexpr unsigned retrySeconds = 3;
constexpr guint32 activeState = 1U << 1; // ATSPI_STATE_ACTIVE of the first word
constexpr std::size_t maxNameBytes = 65536;

std::vector<ObjectName> objects(GVariant* arguments, std::size_t most) {
    std::vector<ObjectName> result;
    const GValueRef list(g_variant_get_child_value(arguments, 0));
    GVariantIter items;
    g_variant_iter_init(&items, list.get());
    const gchar* service = nullptr;
    const gchar* path = nullptr;
    while (result.size() < most && g_variant_iter_next(&items, "(&s&o)", &service, &path) != FALSE)
        result.push_back({service, path});
    return result;
}

/// The value inside the reply to a property's Get.
GValueRef unboxed(GVariant* arguments) {
    const GValueRef boxed(g_variant_get_child_value(arguments, 0));
    return GValueRef(g_variant_get_variant(boxed.get()));
}

} // namespace

void AccessibilityBus::start() {
    const auto connected = [](GObject*, GAsyncResult* result, gpointer data) {
        auto* self = static_cast<AccessibilityBus*>(data);
        self->session_.reset(g_bus_get_finish(result, nullptr));
        if (!self->session_)
            return self->handlers_.disconnected();
        g_dbus_connection_set_exit_on_close(self->session_.get(), FALSE);
        const BusMatch status{.sender = busService,
                              .interface = properties,
                              .member = "PropertiesChanged",
                              .firstArgument = statusInterface};
        [[maybe_unused]] const guint forLife =
            listenToBus(self->session_.get(), status,
                        [self](auto&, auto&, GVariant*) { self->askWhetherEnabled(); });
        self->askWhetherEnabled();
    };
    g_bus_get(G_BUS_TYPE_SESSION, nullptr, connected, this);
}

void AccessibilityBus::askWhetherEnabled() {
    callBus(session_.get(), {busService, busPath, properties, "Get"},
            g_variant_new("(ss)", statusInterface, "IsEnabled"), "(v)", daemonPatienceMs,
            [this](GVariant* answer, bool timedOut) {
                if (timedOut) {
                    // The service may still be starting, and won't say later that it is on.
                    if (!bus_ && !isConnecting_)
                        retryLater();
                    return;
                }
                const GValueRef value = answer == nullptr ? nullptr : unboxed(answer);
                setEnabled(value && g_variant_is_of_type(value.get(), G_VARIANT_TYPE_BOOLEAN) &&
                           g_variant_get_boolean(value.get()) != FALSE);
            });
}

void AccessibilityBus::setEnabled(bool enabled) {
    isEnabled_ = enabled;
    if (!enabled)
        lose();
    else if (!bus_ && !isConnecting_)
        askAddress();
}

void AccessibilityBus::askAddress() {
    isConnecting_ = true;
    callBus(session_.get(), {busService, busPath, busService, "GetAddress"}, nullptr, "(s)",
            daemonPatienceMs, [this](GVariant* answer, bool) {
                const gchar* address = "";
                if (answer != nullptr)
                    g_variant_get(answer, "(&s)", &address);
                connect(address);
            });
}

void AccessibilityBus::connect(const std::string& address) {
    if (address.empty())
        return retryLater();
    const auto connected = [](GObject*, GAsyncResult* result, gpointer data) {
        auto* self = static_cast<AccessibilityBus*>(data);
        self->bus_.reset(g_dbus_connection_new_for_address_finish(result, nullptr));
        if (self->bus_)
            self->haveConnection();
        else
            self->retryLater();
    };
    g_dbus_connection_new_for_address(
        address.c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, connected, this);
}

void AccessibilityBus::haveConnection() {
    isConnecting_ = false;
    g_dbus_connection_set_exit_on_close(bus_.get(), FALSE);
    const auto closed = +[](GDBusConnection*, gboolean, GError*, gpointer data) {
        auto* self = static_cast<AccessibilityBus*>(data);
        self->lose();
        self->retryLater();
    };
    g_signal_connect(bus_.get(), "closed", G_CALLBACK(closed), this);
    listen();
    programs([this](const std::vector<ObjectName>&) { handlers_.connected(); });
}

void AccessibilityBus::listen() {
    for (const char* event : {"window:activate", "window:deactivate"})
        callBus(bus_.get(), {registryService, registryPath, registryService, "RegisterEvent"},
                g_variant_new("(s)", event), "()", daemonPatienceMs, [](GVariant*, bool) {});
    for (const char* member : {"Activate", "Deactivate"}) {
        [[maybe_unused]] const guint forConnection =
            listenToBus(bus_.get(), {.interface = windowEvents, .member = member},
                        [this](const std::string& sender, auto&, GVariant*) {
                            handlers_.windowsChanged(sender);
                        });
    }
    const BusMatch owners{.sender = "org.freedesktop.DBus",
                          .interface = "org.freedesktop.DBus",
                          .member = "NameOwnerChanged"};
    [[maybe_unused]] const guint forConnection =
        listenToBus(bus_.get(), owners, [this](auto&, auto&, GVariant* arguments) {
            const gchar *name = "", *before = "", *after = "";
            g_variant_get(arguments, "(&s&s&s)", &name, &before, &after);
            if (*after == '\0')
                handlers_.left(name);
        });
}

void AccessibilityBus::lose() {
    if (bus_) {
        g_signal_handlers_disconnect_by_data(bus_.get(), this);
        g_dbus_connection_close(bus_.get(), nullptr, nullptr, nullptr);
        bus_.reset();
    }
    handlers_.disconnected();
}

void AccessibilityBus::retryLater() {
    isConnecting_ = false;
    handlers_.disconnected();
    GSource* source = g_timeout_source_new_seconds(retrySeconds);
    const auto retry = [](gpointer data) -> gboolean {
        static_cast<AccessibilityBus*>(data)->askWhetherEnabled();
        return G_SOURCE_REMOVE;
    };
    g_source_set_callback(source, retry, this, nullptr);
    g_source_attach(source, g_main_context_get_thread_default());
    g_source_unref(source);
}

void AccessibilityBus::programs(std::function<void(const std::vector<ObjectName>&)> found) {
    childrenUpTo(maxPrograms, {registryService, rootPath},
                 [found = std::move(found)](const std::vector<ObjectName>* list, bool) {
                     found(list == nullptr ? std::vector<ObjectName>() : *list);
                 });
}

void AccessibilityBus::children(
    const ObjectName& object,
    std::function<void(const std::vector<ObjectName>*, bool timedOut)> found) {
    childrenUpTo(maxChildren, object, std::move(found));
}

void AccessibilityBus::childrenUpTo(
    std::size_t most, const ObjectName& object,
    std::function<void(const std::vector<ObjectName>*, bool timedOut)> found) {
    callBus(bus_.get(), {object.service, object.path, accessibleInterface, "GetChildren"}, nullptr,
            "(a(so))", patienceMs,
            [found = std::move(found), most](GVariant* answer, bool timedOut) {
                if (answer == nullptr)
                    return found(nullptr, timedOut);
                const auto list = objects(answer, most);
                found(&list, false);
            });
}

void AccessibilityBus::process(const std::string& service, std::function<void(int)> found) {
    callBus(bus_.get(),
            {"org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
             "GetConnectionUnixProcessID"},
            g_variant_new("(s)", service.c_str()), "(u)", patienceMs,
            [found = std::move(found)](GVariant* answer, bool) {
                guint32 process = 0;
                if (answer != nullptr)
                    g_variant_get(answer, "(u)", &process);
                found(static_cast<int>(process));
            });
}

void AccessibilityBus::name(const ObjectName& window,
                            std::function<void(const std::string*)> found) {
    callBus(bus_.get(), {window.service, window.path, properties, "Get"},
            g_variant_new("(ss)", accessibleInterface, "Name"), "(v)", patienceMs,
            [found = std::move(found)](GVariant* answer, bool) {
                const GValueRef value = answer == nullptr ? nullptr : unboxed(answer);
                if (!value || !g_variant_is_of_type(value.get(), G_VARIANT_TYPE_STRING))
                    return found(nullptr);
                gsize length = 0;
                const gchar* text = g_variant_get_string(value.get(), &length);
                // Browsers put their own words last.
                const std::string_view whole(text, length);
                const std::string bounded =
                    length <= maxNameBytes
                        ? std::string(whole)
                        : std::string(whole.substr(0, maxNameBytes * 3 / 4)) +
                              std::string(whole.substr(length - maxNameBytes / 4));
                const std::string clean = cleanText(bounded);
                found(&clean);
            });
}

void AccessibilityBus::isActive(const ObjectName& window, std::function<void(bool)> found) {
    callBus(bus_.get(), {window.service, window.path, accessibleInterface, "GetState"}, nullptr,
            "(au)", patienceMs, [found = std::move(found)](GVariant* answer, bool) {
                guint32 first = 0;
                if (answer != nullptr) {
                    const GValueRef words(g_variant_get_child_value(answer, 0));
                    if (g_variant_n_children(words.get()) > 0)
                        g_variant_get_child(words.get(), 0, "u", &first);
                }
                found((first & activeState) != 0);
            });
}

} // namespace mnemora::atspi
