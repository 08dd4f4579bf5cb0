#pragma once
// A program on the session's message bus that takes calls and answers none, or all alike.

#include "Linux/Desktop/GLibHandles.h"

#include <atomic>
#include <mutex>
#include <string>

namespace mnemora::test {

/// Any thread.
class BusService {
  public:
    explicit BusService(std::string name) : name_(std::move(name)) {
        const desktop::GText address(
            g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SESSION, nullptr, nullptr));
        constexpr auto flags =
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
        bus_.reset(g_dbus_connection_new_for_address_sync(address.get(), flags, nullptr, nullptr,
                                                          nullptr));
        filter_ = g_dbus_connection_add_filter(bus_.get(), heard, this, nullptr);
    }
    /// Leaves the bus, as a program that is killed.
    ~BusService() {
        g_dbus_connection_close_sync(bus_.get(), nullptr, nullptr);
        g_dbus_connection_remove_filter(bus_.get(), filter_);
    }
    BusService(const BusService&) = delete;
    BusService& operator=(const BusService&) = delete;

    void takeName() { askBus("RequestName", g_variant_new("(su)", name_.c_str(), 0)); }
    void leaveName() { askBus("ReleaseName", g_variant_new("(s)", name_.c_str())); }
    /// How often it was called.
    [[nodiscard]] int calls() const { return calls_; }
    /// Answers from now on, in GVariant's own notation; an empty text: not at all.
    void answer(const std::string& text) {
        const std::lock_guard lock(mutex_);
        answer_ = text;
    }
    void signal(const char* path, const char* interface, const char* member, GVariant* arguments) {
        g_dbus_connection_emit_signal(bus_.get(), nullptr, path, interface, member, arguments,
                                      nullptr);
    }

  private:
    void askBus(const char* member, GVariant* arguments) {
        const desktop::GValueRef reply(g_dbus_connection_call_sync(
            bus_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
            member, arguments, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
    }
    // On the library's own thread, before anything else sees the message.
    static GDBusMessage* heard(GDBusConnection* bus, GDBusMessage* message, gboolean isIncoming,
                               gpointer data) {
        auto* self = static_cast<BusService*>(data);
        if (!isIncoming ||
            g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_METHOD_CALL)
            return message;
        const desktop::GRef<GDBusMessage> call(message);
        ++self->calls_;
        const std::lock_guard lock(self->mutex_);
        if (self->answer_.empty())
            return nullptr;
        const desktop::GRef<GDBusMessage> reply(g_dbus_message_new_method_reply(message));
        g_dbus_message_set_body(reply.get(), g_variant_new_parsed(self->answer_.c_str()));
        g_dbus_connection_send_message(bus, reply.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr,
                                       nullptr);
        return nullptr;
    }

    const std::string name_;
    std::atomic<int> calls_ = 0;
    std::mutex mutex_;
    std::string answer_; // guarded by mutex_
    desktop::GRef<GDBusConnection> bus_;
    guint filter_ = 0;
};

} // namespace mnemora::test
