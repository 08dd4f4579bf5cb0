#include "Linux/Desktop/SessionBus.h"

#include "Linux/Desktop/GLibHandles.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace mnemora::desktop {
namespace {

constexpr const char* variable = "DBUS_SESSION_BUS_ADDRESS";

/// Where libdbus looks first (dbus-daemon(1)); empty where it would start a bus of its own.
std::string sessionBusAddress() {
    if (const char* address = std::getenv(variable))
        return address;
    const char* folder = std::getenv("XDG_RUNTIME_DIR");
    if (folder == nullptr)
        return {};
    const auto place = std::filesystem::path(folder) / "bus";
    std::error_code error;
    if (!std::filesystem::is_socket(place, error))
        return {};
    const GText escaped(g_dbus_address_escape_value(place.c_str()));
    return std::string("unix:path=") + escaped.get();
}

struct Handshake {
    bool isOver = false;
    bool isTooLate = false;
};

void finish(GObject* /*source*/, GAsyncResult* result, gpointer data) {
    auto* handshake = static_cast<Handshake*>(data);
    GError* raw = nullptr;
    const GRef<GDBusConnection> connection(g_dbus_connection_new_for_address_finish(result, &raw));
    const GErrorRef error(raw);
    handshake->isOver = true;
    // The latter where so many wait for a bus that hangs that no more may (connect(2), EAGAIN).
    for (const int late : {G_IO_ERROR_CANCELLED, G_IO_ERROR_WOULD_BLOCK})
        handshake->isTooLate =
            handshake->isTooLate || g_error_matches(raw, G_IO_ERROR, late) != FALSE;
}

gboolean cancel(gpointer cancellable) {
    g_cancellable_cancel(G_CANCELLABLE(cancellable));
    return G_SOURCE_REMOVE;
}

} // namespace

bool sessionBusAnswers(std::chrono::milliseconds patience) {
    const std::string address = sessionBusAddress();
    if (!address.starts_with("unix:"))
        return true;
    const std::unique_ptr<GMainContext, GDeleter> context(g_main_context_new());
    const GRef<GCancellable> cancellable(g_cancellable_new());
    const std::unique_ptr<GSource, GDeleter> bound(
        g_timeout_source_new(static_cast<guint>(patience.count())));
    g_source_set_callback(bound.get(), cancel, cancellable.get(), nullptr);
    g_source_attach(bound.get(), context.get());
    g_main_context_push_thread_default(context.get());
    Handshake handshake;
    g_dbus_connection_new_for_address(address.c_str(),
                                      G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT, nullptr,
                                      cancellable.get(), finish, &handshake);
    while (!handshake.isOver)
        g_main_context_iteration(context.get(), TRUE);
    g_main_context_pop_thread_default(context.get());
    g_source_destroy(bound.get());
    return !handshake.isTooLate;
}

WithoutSessionBus::WithoutSessionBus() {
    if (const char* address = std::getenv(variable))
        former_ = address;
    setenv(variable, "disabled:", 1);
}

WithoutSessionBus::~WithoutSessionBus() {
    if (former_.empty())
        unsetenv(variable);
    else
        setenv(variable, former_.c_str(), 1);
}

} // namespace mnemora::desktop
