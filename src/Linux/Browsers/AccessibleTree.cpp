#include "Linux/Browsers/AccessibleTree.h"

#include "Linux/Desktop/BusCalls.h"
#include "Text/Encoding.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>

namespace mnemora::browsers {
namespace {

using desktop::GErrorRef;
using desktop::GRef;
using desktop::GText;
using desktop::GValueRef;
using std::chrono::milliseconds;

constexpr auto accessible = "org.a11y.atspi.Accessible";
constexpr auto properties = "org.freedesktop.DBus.Properties";
constexpr auto nullObject = "/org/a11y/atspi/null";
constexpr auto busService = "org.a11y.Bus";
constexpr auto busPath = "/org/a11y/bus";
/// What one answer may take; a browser answers within a millisecond.
constexpr milliseconds longestCall{500};

int timeLeft(AccessibleTree::Time deadline) {
    const auto left =
        std::chrono::duration_cast<milliseconds>(deadline - std::chrono::steady_clock::now());
    return static_cast<int>(std::min(left, longestCall).count());
}

GValueRef callBus(GDBusConnection* bus, const char* interface, const char* member,
                  GVariant* arguments, const char* replyType, int timeout) {
    return GValueRef(g_dbus_connection_call_sync(
        bus, busService, busPath, interface, member, arguments, G_VARIANT_TYPE(replyType),
        G_DBUS_CALL_FLAGS_NO_AUTO_START, timeout, nullptr, nullptr));
}

/// Cancels what runs under it at the deadline: to connect to a bus that hangs has no end of its
/// own.
class Deadline {
  public:
    /// Throws std::system_error when there is no thread to be had.
    explicit Deadline(AccessibleTree::Time end)
        : cancellable_(g_cancellable_new()), thread_([this, end] { wait(end); }) {}
    ~Deadline() {
        {
            const std::lock_guard lock(mutex_);
            isOver_ = true;
        }
        over_.notify_all();
        thread_.join();
    }
    Deadline(const Deadline&) = delete;
    Deadline& operator=(const Deadline&) = delete;

    [[nodiscard]] GCancellable* cancellable() const { return cancellable_.get(); }

  private:
    void wait(AccessibleTree::Time end) {
        std::unique_lock lock(mutex_);
        if (!over_.wait_until(lock, end, [this] { return isOver_; }))
            g_cancellable_cancel(cancellable_.get());
    }

    GRef<GCancellable> cancellable_;
    std::mutex mutex_;
    std::condition_variable over_;
    bool isOver_ = false; // guarded by mutex_
    std::thread thread_;  // last: it uses all of the above
};

/// Where the accessibility bus is; empty when it is off.
std::string busAddress(int timeout, GCancellable* cancellable) {
    const GRef<GDBusConnection> session(g_bus_get_sync(G_BUS_TYPE_SESSION, cancellable, nullptr));
    if (!session)
        return {};
    const auto enabled =
        callBus(session.get(), properties, "Get",
                g_variant_new("(ss)", "org.a11y.Status", "IsEnabled"), "(v)", timeout);
    if (!enabled)
        return {};
    const GValueRef boxed(g_variant_get_child_value(enabled.get(), 0));
    const GValueRef value(g_variant_get_variant(boxed.get()));
    if (!g_variant_is_of_type(value.get(), G_VARIANT_TYPE_BOOLEAN) ||
        g_variant_get_boolean(value.get()) == FALSE)
        return {};
    const auto answer = callBus(session.get(), busService, "GetAddress", nullptr, "(s)", timeout);
    const gchar* address = "";
    if (answer)
        g_variant_get(answer.get(), "(&s)", &address);
    return address;
}

AccessibleObject objectIn(GVariant* pair) {
    const gchar* service = "";
    const gchar* path = "";
    g_variant_get(pair, "(&s&o)", &service, &path);
    return {.service = service, .path = path};
}

std::string textIn(const GValueRef& reply) {
    const gchar* text = "";
    if (reply)
        g_variant_get(reply.get(), "(&s)", &text);
    return cleanText(text);
}

} // namespace

std::optional<AccessibleTree> AccessibleTree::connect(Time deadline) {
    try {
        const int timeout = timeLeft(deadline);
        const Deadline bound(deadline);
        const auto address = timeout > 0 ? busAddress(timeout, bound.cancellable()) : std::string();
        if (address.empty())
            return std::nullopt;
        constexpr auto flags =
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
        GRef<GDBusConnection> bus(g_dbus_connection_new_for_address_sync(
            address.c_str(), flags, nullptr, bound.cancellable(), nullptr));
        if (!bus)
            return std::nullopt;
        return AccessibleTree(std::move(bus), deadline);
    } catch (const std::system_error&) { // no thread to be had
        return std::nullopt;
    }
}

GValueRef AccessibleTree::call(const AccessibleObject& object, const char* interface,
                               const char* member, GVariant* arguments, const char* replyType) {
    const GValueRef owned(arguments == nullptr ? nullptr : g_variant_ref_sink(arguments));
    const int timeout = timeLeft(deadline_);
    late_ = late_ || timeout <= 0;
    if (late_ || !desktop::isCallable(object.service, object.path))
        return nullptr;
    GError* error = nullptr;
    GValueRef reply(g_dbus_connection_call_sync(
        bus_.get(), object.service.c_str(), object.path.c_str(), interface, member, owned.get(),
        G_VARIANT_TYPE(replyType), G_DBUS_CALL_FLAGS_NO_AUTO_START, timeout, nullptr, &error));
    const GErrorRef failure(error);
    late_ = failure && g_error_matches(failure.get(), G_IO_ERROR, G_IO_ERROR_TIMED_OUT) != FALSE;
    return reply;
}

std::vector<AccessibleObject> AccessibleTree::programs() {
    return children({"org.a11y.atspi.Registry", "/org/a11y/atspi/accessible/root"});
}

int AccessibleTree::processOf(const AccessibleObject& object) {
    const auto reply =
        call({"org.freedesktop.DBus", "/org/freedesktop/DBus"}, "org.freedesktop.DBus",
             "GetConnectionUnixProcessID", g_variant_new("(s)", object.service.c_str()), "(u)");
    guint32 process = 0;
    if (reply)
        g_variant_get(reply.get(), "(u)", &process);
    return static_cast<int>(process);
}

std::vector<AccessibleObject> AccessibleTree::children(const AccessibleObject& object) {
    std::vector<AccessibleObject> found;
    const auto reply = call(object, accessible, "GetChildren", nullptr, "(a(so))");
    if (!reply)
        return found;
    const GValueRef list(g_variant_get_child_value(reply.get(), 0));
    const gsize count = g_variant_n_children(list.get());
    for (gsize index = 0; index < count; ++index) {
        const GValueRef pair(g_variant_get_child_value(list.get(), index));
        found.push_back(objectIn(pair.get()));
    }
    return found;
}

std::optional<AccessibleObject> AccessibleTree::plug(const AccessibleObject& socket) {
    const auto reply =
        call(socket, accessible, "GetChildAtIndex", g_variant_new("(i)", 0), "((so))");
    if (!reply)
        return std::nullopt;
    const GValueRef pair(g_variant_get_child_value(reply.get(), 0));
    auto object = objectIn(pair.get());
    return object.path == nullObject ? std::nullopt : std::optional(std::move(object));
}

std::uint32_t AccessibleTree::role(const AccessibleObject& object) {
    const auto reply = call(object, accessible, "GetRole", nullptr, "(u)");
    guint32 role = 0;
    if (reply)
        g_variant_get(reply.get(), "(u)", &role);
    return role;
}

std::uint64_t AccessibleTree::states(const AccessibleObject& object) {
    const auto reply = call(object, accessible, "GetState", nullptr, "(au)");
    if (!reply)
        return 0;
    const GValueRef words(g_variant_get_child_value(reply.get(), 0));
    std::uint64_t states = 0;
    for (gsize index = 0; index < std::min<gsize>(g_variant_n_children(words.get()), 2); ++index) {
        guint32 word = 0;
        g_variant_get_child(words.get(), index, "u", &word);
        states |= std::uint64_t{word} << (32 * index);
    }
    return states;
}

std::string AccessibleTree::documentAttribute(const AccessibleObject& object, const char* name) {
    return textIn(call(object, "org.a11y.atspi.Document", "GetAttributeValue",
                       g_variant_new("(s)", name), "(s)"));
}

std::string AccessibleTree::text(const AccessibleObject& object) {
    return textIn(
        call(object, "org.a11y.atspi.Text", "GetText", g_variant_new("(ii)", 0, -1), "(s)"));
}

std::optional<AccessibleObject> AccessibleTree::embedded(const AccessibleObject& object,
                                                         int number) {
    const auto link =
        call(object, "org.a11y.atspi.Hypertext", "GetLink", g_variant_new("(i)", number), "((so))");
    if (!link)
        return std::nullopt;
    const GValueRef linkPair(g_variant_get_child_value(link.get(), 0));
    const auto target = call(objectIn(linkPair.get()), "org.a11y.atspi.Hyperlink", "GetObject",
                             g_variant_new("(i)", 0), "((so))");
    if (!target)
        return std::nullopt;
    const GValueRef targetPair(g_variant_get_child_value(target.get(), 0));
    return objectIn(targetPair.get());
}

} // namespace mnemora::browsers
