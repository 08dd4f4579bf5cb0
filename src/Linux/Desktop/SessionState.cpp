#include "Linux/Desktop/SessionState.h"

#include "Linux/Desktop/GLibHandles.h"

#include <array>
#include <atomic>
#include <cstddef>

namespace mnemora::desktop {
namespace {

constexpr const char* loginService = "org.freedesktop.login1";
constexpr const char* loginSession = "org.freedesktop.login1.Session";
// logind's name for the caller's session, or for the graphical one of the caller's user.
constexpr const char* ownSession = "/org/freedesktop/login1/session/auto";
constexpr int patienceMs = 2000;

struct ScreenSaver {
    const char* name; // of the service and of its interface
    const char* path;
};

constexpr std::array<ScreenSaver, 5> screenSavers = {{
    {"org.freedesktop.ScreenSaver", "/org/freedesktop/ScreenSaver"},
    {"org.gnome.ScreenSaver", "/org/gnome/ScreenSaver"},
    {"org.cinnamon.ScreenSaver", "/org/cinnamon/ScreenSaver"},
    {"org.mate.ScreenSaver", "/org/mate/ScreenSaver"},
    {"org.xfce.ScreenSaver", "/org/xfce/ScreenSaver"},
}};

} // namespace

// Its address is handed to GIO as user data; a reference that is released on the thread itself
// keeps it until the last answer is in.
struct SessionState::Listener : std::enable_shared_from_this<Listener> {
    using Self = std::shared_ptr<Listener>;

    std::atomic<bool> isActive = true;
    std::atomic<bool> isLocked = false;
    std::array<std::atomic<bool>, screenSavers.size()> isSaving{};
    bool isOver = false; // this thread only
    GRef<GDBusConnection> systemBus;
    GRef<GDBusConnection> sessionBus;

    static gpointer hold(Self self) { return std::make_unique<Self>(std::move(self)).release(); }
    static Self take(gpointer data) { return *std::unique_ptr<Self>(static_cast<Self*>(data)); }
    static void release(gpointer data) { take(data); }

    void start();
    void end();
    void haveSystemBus();
    void haveSessionBus();
    void askLogin();
    void readLogin(GVariant* properties);
    void askScreenSaver(std::size_t index);
    static void answeredLogin(GObject* bus, GAsyncResult* result, gpointer data);
};

namespace {

std::size_t saverNamed(const gchar* name) {
    std::size_t index = 0;
    while (index < screenSavers.size() && g_strcmp0(screenSavers[index].name, name) != 0)
        ++index;
    return index;
}

} // namespace

void SessionState::Listener::start() {
    g_bus_get(
        G_BUS_TYPE_SYSTEM, nullptr,
        [](GObject*, GAsyncResult* result, gpointer data) {
            const Self self = take(data);
            self->systemBus.reset(g_bus_get_finish(result, nullptr));
            if (self->systemBus && !self->isOver)
                self->haveSystemBus();
        },
        hold(shared_from_this()));
    g_bus_get(
        G_BUS_TYPE_SESSION, nullptr,
        [](GObject*, GAsyncResult* result, gpointer data) {
            const Self self = take(data);
            self->sessionBus.reset(g_bus_get_finish(result, nullptr));
            if (self->sessionBus && !self->isOver)
                self->haveSessionBus();
        },
        hold(shared_from_this()));
}

void SessionState::Listener::haveSystemBus() {
    g_dbus_connection_set_exit_on_close(systemBus.get(), FALSE);
    g_dbus_connection_signal_subscribe(
        systemBus.get(), loginService, "org.freedesktop.DBus.Properties", "PropertiesChanged",
        nullptr, loginSession, G_DBUS_SIGNAL_FLAGS_NONE,
        [](GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*, GVariant*,
           gpointer data) { (*static_cast<Self*>(data))->askLogin(); },
        hold(shared_from_this()), release);
    askLogin();
}

void SessionState::Listener::askLogin() {
    if (isOver)
        return;
    g_dbus_connection_call(systemBus.get(), loginService, ownSession,
                           "org.freedesktop.DBus.Properties", "GetAll",
                           g_variant_new("(s)", loginSession), G_VARIANT_TYPE("(a{sv})"),
                           G_DBUS_CALL_FLAGS_NO_AUTO_START, patienceMs, nullptr, answeredLogin,
                           hold(shared_from_this()));
}

void SessionState::Listener::answeredLogin(GObject* bus, GAsyncResult* result, gpointer data) {
    const Self self = take(data);
    const GValueRef answer(g_dbus_connection_call_finish(
        reinterpret_cast<GDBusConnection*>(bus), result, nullptr));
    if (!answer)
        return; // no logind, or no session that it knows: nobody tells
    const GValueRef properties(g_variant_get_child_value(answer.get(), 0));
    self->readLogin(properties.get());
}

void SessionState::Listener::readLogin(GVariant* properties) {
    gboolean value = FALSE;
    if (g_variant_lookup(properties, "Active", "b", &value) != FALSE)
        isActive = value != FALSE;
    if (g_variant_lookup(properties, "LockedHint", "b", &value) != FALSE)
        isLocked = value != FALSE;
}

void SessionState::Listener::haveSessionBus() {
    auto* bus = sessionBus.get();
    g_dbus_connection_set_exit_on_close(bus, FALSE);
    for (std::size_t i = 0; i < screenSavers.size(); ++i) {
        const auto changed = [](GDBusConnection*, const gchar*, const gchar*,
                                const gchar* interface, const gchar*, GVariant* arguments,
                                gpointer data) {
            gboolean value = FALSE;
            if (g_variant_is_of_type(arguments, G_VARIANT_TYPE("(b)")) == FALSE)
                return;
            g_variant_get(arguments, "(b)", &value);
            if (const auto index = saverNamed(interface); index < screenSavers.size())
                (*static_cast<Self*>(data))->isSaving[index] = value != FALSE;
        };
        g_dbus_connection_signal_subscribe(bus, nullptr, screenSavers[i].name, "ActiveChanged",
                                           nullptr, nullptr, G_DBUS_SIGNAL_FLAGS_NONE, changed,
                                           hold(shared_from_this()), release);
        // One that ends while it covers the screen says no word.
        const auto ownerChanged = [](GDBusConnection*, const gchar*, const gchar*, const gchar*,
                                     const gchar*, GVariant* arguments, gpointer data) {
            const gchar* name = nullptr;
            g_variant_get_child(arguments, 0, "&s", &name);
            if (const auto index = saverNamed(name); index < screenSavers.size())
                (*static_cast<Self*>(data))->askScreenSaver(index);
        };
        g_dbus_connection_signal_subscribe(bus, "org.freedesktop.DBus", "org.freedesktop.DBus",
                                           "NameOwnerChanged", "/org/freedesktop/DBus",
                                           screenSavers[i].name, G_DBUS_SIGNAL_FLAGS_NONE,
                                           ownerChanged, hold(shared_from_this()), release);
        askScreenSaver(i);
    }
}

void SessionState::Listener::askScreenSaver(std::size_t index) {
    if (isOver)
        return;
    struct Call {
        Self self;
        std::size_t index;
    };
    const auto answered = [](GObject* bus, GAsyncResult* result, gpointer data) {
        const std::unique_ptr<Call> call(static_cast<Call*>(data));
        const GValueRef answer(g_dbus_connection_call_finish(
            reinterpret_cast<GDBusConnection*>(bus), result, nullptr));
        gboolean value = FALSE;
        if (answer)
            g_variant_get(answer.get(), "(b)", &value);
        call->self->isSaving[call->index] = value != FALSE;
    };
    auto call = std::make_unique<Call>(Call{shared_from_this(), index});
    g_dbus_connection_call(sessionBus.get(), screenSavers[index].name, screenSavers[index].path,
                           screenSavers[index].name, "GetActive", nullptr, G_VARIANT_TYPE("(b)"),
                           G_DBUS_CALL_FLAGS_NO_AUTO_START, patienceMs, nullptr, answered,
                           call.release());
}

void SessionState::Listener::end() {
    isOver = true;
    systemBus.reset();
    sessionBus.reset();
}

SessionState::SessionState(GLibThread& thread)
    : thread_(thread), listener_(std::make_shared<Listener>()) {
    thread_.invoke([listener = listener_] { listener->start(); });
}

SessionState::~SessionState() {
    thread_.invoke([listener = listener_] { listener->end(); });
}

bool SessionState::isInFront() const {
    for (const auto& isSaving : listener_->isSaving)
        if (isSaving)
            return false;
    return listener_->isActive && !listener_->isLocked;
}

} // namespace mnemora::desktop
