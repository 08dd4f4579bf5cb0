#include "Linux/Desktop/SessionState.h"

#include "Linux/Desktop/BusCalls.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <utility>
#include <vector>

namespace mnemora::desktop {
namespace {

using Steady = std::chrono::steady_clock;

constexpr const char* properties = "org.freedesktop.DBus.Properties";
constexpr const char* loginService = "org.freedesktop.login1";
constexpr const char* loginSession = "org.freedesktop.login1.Session";
// logind's name for the caller's session, or for the graphical one of the caller's user.
constexpr const char* ownSession = "/org/freedesktop/login1/session/auto";
constexpr int patienceMs = 2000;
constexpr auto patience = std::chrono::milliseconds(patienceMs);

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

bool flag(GVariant* arguments) {
    gboolean value = FALSE;
    if (arguments != nullptr && g_variant_is_of_type(arguments, G_VARIANT_TYPE("(b)")) != FALSE)
        g_variant_get(arguments, "(b)", &value);
    return value != FALSE;
}

/// What a peer is asked each time it signals a change: one call at a time, so that one that floods
/// is asked no more than it answers, and again when it hung.
struct Enquiry {
    BusMethod method;
    const char* argument; // null for none
    const char* replyType;
    bool isUnderWay = false;
    bool isDue = false; // something has changed since it was put
    Steady::time_point putAt = {};
};

} // namespace

// Callbacks hold it: the last one to come may come after the owner has gone.
struct SessionState::Listener : std::enable_shared_from_this<Listener> {
    using Self = std::shared_ptr<Listener>;

    std::atomic<bool> isActive = true;
    std::atomic<bool> isLocked = false;
    std::array<std::atomic<bool>, screenSavers.size()> isSaving{};
    bool isOver = false; // this thread only, as those below
    Enquiry login{{loginService, ownSession, properties, "GetAll"}, loginSession, "(a{sv})"};
    std::vector<Enquiry> saving;
    GRef<GDBusConnection> systemBus;
    GRef<GDBusConnection> sessionBus;

    void start();
    void connect(GBusType type, GRef<GDBusConnection> Listener::*bus,
                 void (Listener::*connected)());
    void ask(GDBusConnection* bus, Enquiry& enquiry, const std::function<void(GVariant*)>& heard);
    void followLogin();
    void followScreenSavers();
    void askLogin();
    void readLogin(GVariant* values);
    void askScreenSaver(std::size_t index);
};

void SessionState::Listener::start() {
    connect(G_BUS_TYPE_SYSTEM, &Listener::systemBus, &Listener::followLogin);
    connect(G_BUS_TYPE_SESSION, &Listener::sessionBus, &Listener::followScreenSavers);
}

void SessionState::Listener::connect(GBusType type, GRef<GDBusConnection> Listener::*bus,
                                     void (Listener::*connected)()) {
    using Continue = std::function<void(GDBusConnection*)>;
    auto next = std::make_unique<Continue>([self = shared_from_this(), bus, connected](auto* made) {
        if (made == nullptr)
            return;
        g_dbus_connection_set_exit_on_close(made, FALSE);
        (*self.*bus).reset(made);
        if (!self->isOver)
            (*self.*connected)();
    });
    const auto finish = [](GObject*, GAsyncResult* result, gpointer data) {
        const std::unique_ptr<Continue> owned(static_cast<Continue*>(data));
        (*owned)(g_bus_get_finish(result, nullptr));
    };
    g_bus_get(type, nullptr, finish, next.release());
}

void SessionState::Listener::ask(GDBusConnection* on, Enquiry& enquiry,
                                 const std::function<void(GVariant*)>& heard) {
    enquiry.isDue = enquiry.isUnderWay;
    if (isOver || std::exchange(enquiry.isUnderWay, true))
        return;
    enquiry.putAt = Steady::now();
    callBus(
        on, enquiry.method,
        enquiry.argument == nullptr ? nullptr : g_variant_new("(s)", enquiry.argument),
        enquiry.replyType, patienceMs,
        [self = shared_from_this(), on, &enquiry, heard](GVariant* answer, bool timedOut) {
            enquiry.isUnderWay = false;
            // One that is gone answers so too, but at once.
            const bool hangs = timedOut && Steady::now() - enquiry.putAt >= patience / 2;
            if (!hangs)
                heard(answer);
            if (enquiry.isDue || hangs)
                self->ask(on, enquiry, heard);
        },
        G_DBUS_CALL_FLAGS_NO_AUTO_START);
}

void SessionState::Listener::followLogin() {
    const BusMatch changes{.sender = loginService,
                           .interface = properties,
                           .member = "PropertiesChanged",
                           .firstArgument = loginSession};
    [[maybe_unused]] const guint forLife =
        listenToBus(systemBus.get(), changes,
                    [self = shared_from_this()](auto&, auto&, GVariant*) { self->askLogin(); });
    askLogin();
}

// No answer means no logind, or no session that it knows: nobody tells.
void SessionState::Listener::askLogin() {
    ask(systemBus.get(), login, [this](GVariant* answer) {
        if (answer == nullptr)
            return;
        const GValueRef values(g_variant_get_child_value(answer, 0));
        readLogin(values.get());
    });
}

void SessionState::Listener::readLogin(GVariant* values) {
    gboolean value = FALSE;
    if (g_variant_lookup(values, "Active", "b", &value) != FALSE)
        isActive = value != FALSE;
    if (g_variant_lookup(values, "LockedHint", "b", &value) != FALSE)
        isLocked = value != FALSE;
}

void SessionState::Listener::followScreenSavers() {
    for (const ScreenSaver& saver : screenSavers)
        saving.push_back({{saver.name, saver.path, saver.name, "GetActive"}, nullptr, "(b)"});
    for (std::size_t i = 0; i < screenSavers.size(); ++i) {
        const BusMatch changes{.interface = screenSavers[i].name, .member = "ActiveChanged"};
        [[maybe_unused]] const guint first = listenToBus(
            sessionBus.get(), changes, [self = shared_from_this(), i](auto&, auto&, GVariant* to) {
                self->isSaving[i] = flag(to);
            });
        // One that ends while it covers the screen says no word.
        const BusMatch owners{.sender = "org.freedesktop.DBus",
                              .interface = "org.freedesktop.DBus",
                              .member = "NameOwnerChanged",
                              .firstArgument = screenSavers[i].name};
        [[maybe_unused]] const guint second = listenToBus(
            sessionBus.get(), owners,
            [self = shared_from_this(), i](auto&, auto&, GVariant*) { self->askScreenSaver(i); });
        askScreenSaver(i);
    }
}

void SessionState::Listener::askScreenSaver(std::size_t index) {
    ask(sessionBus.get(), saving[index],
        [this, index](GVariant* answer) { isSaving[index] = flag(answer); });
}

SessionState::SessionState(GLibThread& thread)
    : thread_(thread), listener_(std::make_shared<Listener>()) {
    thread_.invoke([listener = listener_] { listener->start(); });
}

SessionState::~SessionState() {
    thread_.invoke([listener = listener_] { listener->isOver = true; });
}

bool SessionState::isInFront() const {
    for (const auto& isSaving : listener_->isSaving)
        if (isSaving)
            return false;
    return listener_->isActive && !listener_->isLocked;
}

} // namespace mnemora::desktop
