#include "Linux/Desktop/AccessibilitySwitch.h"

#include "Linux/Desktop/BusCalls.h"

#include <mutex>

namespace mnemora::desktop {
namespace {

constexpr const char* statusInterface = "org.a11y.Status";
constexpr const char* switchName = "IsEnabled";
constexpr int patienceMs = 3000; // starting the service is included

BusMethod property(const char* member) {
    return {"org.a11y.Bus", "/org/a11y/bus", "org.freedesktop.DBus.Properties", member};
}

std::optional<bool> booleanIn(GVariant* answer) {
    if (answer == nullptr)
        return std::nullopt;
    const GValueRef boxed(g_variant_get_child_value(answer, 0));
    const GValueRef value(g_variant_get_variant(boxed.get()));
    if (!g_variant_is_of_type(value.get(), G_VARIANT_TYPE_BOOLEAN))
        return std::nullopt;
    return g_variant_get_boolean(value.get()) != FALSE;
}

} // namespace

struct AccessibilitySwitch::State : std::enable_shared_from_this<AccessibilitySwitch::State> {
    mutable std::mutex mutex;
    std::optional<bool> isOn;      // guarded by mutex
    bool lastChangeFailed = false; // guarded by mutex
    GRef<GDBusConnection> session; // the thread's own

    /// The rest runs on the thread.
    [[nodiscard]] GDBusConnection* connection() {
        if (!session)
            session.reset(g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr));
        if (session)
            g_dbus_connection_set_exit_on_close(session.get(), FALSE);
        return session.get();
    }

    void ask() {
        if (connection() == nullptr)
            return;
        callBus(session.get(), property("Get"), g_variant_new("(ss)", statusInterface, switchName),
                "(v)", patienceMs, [self = shared_from_this()](GVariant* answer, bool) {
                    const std::lock_guard lock(self->mutex);
                    self->isOn = booleanIn(answer);
                });
    }

    void change(bool on) {
        if (connection() == nullptr)
            return changed(false);
        callBus(session.get(), property("Set"),
                g_variant_new("(ssv)", statusInterface, switchName, g_variant_new_boolean(on)),
                "()", patienceMs, [self = shared_from_this()](GVariant* answer, bool) {
                    self->changed(answer != nullptr);
                    self->ask();
                });
    }

    void changed(bool well) {
        const std::lock_guard lock(mutex);
        lastChangeFailed = !well;
    }
};

AccessibilitySwitch::AccessibilitySwitch(GLibThread& thread)
    : thread_(thread), state_(std::make_shared<State>()) {}

AccessibilitySwitch::~AccessibilitySwitch() = default;

void AccessibilitySwitch::refresh() {
    thread_.invoke([state = state_] { state->ask(); });
}

std::optional<bool> AccessibilitySwitch::isOn() const {
    const std::lock_guard lock(state_->mutex);
    return state_->isOn;
}

void AccessibilitySwitch::set(bool on) {
    thread_.invoke([state = state_, on] { state->change(on); });
}

bool AccessibilitySwitch::lastChangeFailed() const {
    const std::lock_guard lock(state_->mutex);
    return state_->lastChangeFailed;
}

} // namespace mnemora::desktop
