#include "Linux/Desktop/BusCalls.h"

#include <memory>
#include <utility>

namespace mnemora::desktop {
namespace {

const char* orNull(const std::string& text) {
    return text.empty() ? nullptr : text.c_str();
}

void replied(GObject* bus, GAsyncResult* result, gpointer data) {
    const std::unique_ptr<BusReply> reply(static_cast<BusReply*>(data));
    GError* failure = nullptr;
    const GValueRef arguments(
        g_dbus_connection_call_finish(reinterpret_cast<GDBusConnection*>(bus), result, &failure));
    const GErrorRef owned(failure);
    const bool timedOut = owned && (g_error_matches(failure, G_IO_ERROR, G_IO_ERROR_TIMED_OUT) ||
                                    g_error_matches(failure, G_DBUS_ERROR, G_DBUS_ERROR_NO_REPLY));
    (*reply)(arguments.get(), timedOut);
}

void signalled(GDBusConnection*, const gchar* sender, const gchar* path, const gchar*, const gchar*,
               GVariant* arguments, gpointer data) {
    (*static_cast<BusSignal*>(data))(sender == nullptr ? "" : sender, path, arguments);
}

void forget(gpointer data) {
    const std::unique_ptr<BusSignal> owned(static_cast<BusSignal*>(data));
}

} // namespace

bool isCallable(const std::string& service, const std::string& path) {
    return g_dbus_is_name(service.c_str()) != FALSE &&
           g_variant_is_object_path(path.c_str()) != FALSE;
}

void callBus(GDBusConnection* bus, const BusMethod& method, GVariant* arguments,
             const char* replyType, int timeoutMs, BusReply reply, GDBusCallFlags flags) {
    if (!isCallable(method.service, method.path)) {
        const GValueRef unused(arguments == nullptr ? nullptr : g_variant_ref_sink(arguments));
        return reply(nullptr, false);
    }
    auto data = std::make_unique<BusReply>(std::move(reply));
    g_dbus_connection_call(bus, method.service.c_str(), method.path.c_str(),
                           method.interface.c_str(), method.member.c_str(), arguments,
                           G_VARIANT_TYPE(replyType), flags, timeoutMs, nullptr, replied,
                           data.release());
}

guint listenToBus(GDBusConnection* bus, const BusMatch& match, BusSignal heard) {
    auto data = std::make_unique<BusSignal>(std::move(heard));
    return g_dbus_connection_signal_subscribe(bus, orNull(match.sender), orNull(match.interface),
                                              orNull(match.member), orNull(match.path),
                                              orNull(match.firstArgument), G_DBUS_SIGNAL_FLAGS_NONE,
                                              signalled, data.release(), forget);
}

} // namespace mnemora::desktop
