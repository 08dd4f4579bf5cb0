#include "Linux/Screen/ScreenCastSession.h"

#include "Log.h"

#include <algorithm>
#include <utility>

namespace mnemora::portal {
namespace {

constexpr const char* ownIdentifier = "app.mnemora.Mnemora";
constexpr guint32 monitorSource = 1;     // of the bits AvailableSourceTypes
constexpr guint32 hiddenCursor = 1;      // of the bits AvailableCursorModes
constexpr guint32 versionWithTokens = 4; // of the interface
constexpr int maxDoublings = 10;
constexpr std::size_t maxTokenBytes = 4096;

guint32 numberOf(GVariant* properties, const char* name) {
    guint32 number = 0;
    g_variant_lookup(properties, name, "u", &number);
    return number;
}

} // namespace

// A connection of our own, because the portal takes an application's name only as the first word on
// one, and others of this process may have spoken on the shared one.
void ScreenCastPortal::Session::begin() {
    const desktop::GText address(
        g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SESSION, nullptr, nullptr));
    if (!address)
        return decide(Presence::absent);
    constexpr auto flags =
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    using Weak = std::weak_ptr<Session>;
    g_dbus_connection_new_for_address(
        address.get(), flags, nullptr, nullptr,
        [](GObject*, GAsyncResult* result, gpointer data) {
            const std::unique_ptr<Weak> weak(static_cast<Weak*>(data));
            desktop::GRef<GDBusConnection> connection(
                g_dbus_connection_new_for_address_finish(result, nullptr));
            if (const auto self = weak->lock())
                self->connected(std::move(connection));
        },
        std::make_unique<Weak>(weak_from_this()).release());
}

void ScreenCastPortal::Session::connected(desktop::GRef<GDBusConnection> connection) {
    if (!connection)
        return decide(Presence::absent);
    bus = std::move(connection);
    ownerSignal = desktop::listenToBus(
        bus.get(),
        {"org.freedesktop.DBus", "org.freedesktop.DBus", "NameOwnerChanged",
         "/org/freedesktop/DBus", service},
        [weak = weak_from_this()](const std::string&, const std::string&, GVariant* change) {
            const auto self = weak.lock();
            if (!self || !g_variant_is_of_type(change, G_VARIANT_TYPE("(sss)")))
                return;
            const gchar* owner = nullptr;
            g_variant_get_child(change, 2, "&s", &owner);
            self->ownerChanged(*owner != '\0');
        });
    look();
}

void ScreenCastPortal::Session::ownerChanged(bool isThere) {
    if (isThere) {
        bool isNews = false;
        {
            const std::lock_guard lock(state.mutex);
            isNews = state.presence == Presence::absent;
        }
        if (isNews)
            look();
        return;
    }
    isIntroduced = false;
    const bool wasUsed = request != nullptr || !sessionPath.empty();
    sessionPath.clear(); // nobody is left to close it
    if (wasUsed)
        fail("the desktop's portal has gone");
}

/// Names us to the portal, where it wants to know: to one that doesn't, every host program is the
/// same application.
void ScreenCastPortal::Session::introduceOurselves(std::function<void()> then) {
    if (std::exchange(isIntroduced, true))
        return then();
    GVariantBuilder nothing;
    g_variant_builder_init(&nothing, G_VARIANT_TYPE_VARDICT);
    desktop::callBus(bus.get(),
                     {service, objectPath, "org.freedesktop.host.portal.Registry", "Register"},
                     g_variant_new("(sa{sv})", ownIdentifier, &nothing), "()",
                     static_cast<int>(options.stepPatience.count()),
                     [then = std::move(then), weak = weak_from_this()](GVariant*, bool) {
                         if (const auto self = weak.lock())
                             then();
                     });
}

/// One look at a time: of a portal that comes and goes without end, each coming would add a look,
/// and each of those its own repetitions.
void ScreenCastPortal::Session::look() {
    isLookDue = isLooking;
    if (std::exchange(isLooking, true))
        return;
    introduceOurselves([this] {
        desktop::callBus(
            bus.get(), {service, objectPath, "org.freedesktop.DBus.Properties", "GetAll"},
            g_variant_new("(s)", castInterface), "(a{sv})",
            static_cast<int>(options.stepPatience.count()),
            [weak = weak_from_this()](GVariant* reply, bool timedOut) {
                const auto self = weak.lock();
                if (!self)
                    return;
                self->isLooking = false;
                // One that is still starting has its name already and won't say when it is ready.
                if ((timedOut || self->isLookDue) && !std::exchange(self->looksLater, true))
                    self->after(self->options.pause, &Session::lookAgain);
                if (reply == nullptr)
                    return self->decide(Presence::absent);
                const desktop::GValueRef properties(g_variant_get_child_value(reply, 0));
                self->looked(properties.get());
            });
    });
}

void ScreenCastPortal::Session::lookAgain() {
    looksLater = false;
    look();
}

void ScreenCastPortal::Session::looked(GVariant* properties) {
    if ((numberOf(properties, "AvailableSourceTypes") & monitorSource) == 0)
        return decide(Presence::absent);
    hidesCursor = (numberOf(properties, "AvailableCursorModes") & hiddenCursor) != 0;
    restores = numberOf(properties, "version") >= versionWithTokens;
    std::string reason;
    if (!opener)
        opener = options.loadOpener(reason);
    if (opener)
        return decide(Presence::present);
    logError("PipeWire is missing: " + reason);
    decide(Presence::absent);
}

void ScreenCastPortal::Session::decide(Presence presence) {
    bool startsNow = false;
    {
        const std::lock_guard lock(state.mutex);
        state.presence = presence;
        startsNow = presence == Presence::present && !state.token.empty() && !state.stream &&
                    !state.isStarting && options.isInFront();
        state.isStarting = state.isStarting || startsNow;
    }
    state.changed.notify_all();
    if (startsNow)
        start(false);
}

void ScreenCastPortal::Session::start(bool withDialog) {
    bool canStart = false;
    {
        const std::lock_guard lock(state.mutex);
        canStart = state.presence == Presence::present && (withDialog || !state.token.empty());
        if (canStart) {
            state.status = {.isAsking = withDialog};
            state.notBefore = {};
        }
    }
    end(canStart); // who waits for a cast waits on
    if (!canStart)
        return;
    isDialog = withDialog;
    introduceOurselves([this, mine = generation] {
        if (mine == generation)
            createSession();
    });
}

void ScreenCastPortal::Session::startIfIdle() {
    {
        const std::lock_guard lock(state.mutex);
        if (state.isStarting || state.stream || !options.isInFront())
            return;
    }
    start(false);
}

void ScreenCastPortal::Session::castEnded() {
    {
        const std::lock_guard lock(state.mutex);
        if (!state.stream || (state.token.empty() && state.stream->isAlive()))
            return;
    }
    fail("it gives no pictures any more");
}

void ScreenCastPortal::Session::fail(const std::string& reason) {
    if (std::exchange(lastReason, reason) != reason)
        logError("screen cast: " + reason);
    end();
    const std::lock_guard lock(state.mutex);
    state.status = {.lastFailed = true};
    const auto pause = options.pause * (1 << std::min(state.failures++, maxDoublings));
    state.notBefore = std::chrono::steady_clock::now() + std::min(pause, options.maxPause);
}

void ScreenCastPortal::Session::refuse(const std::string& reason) {
    logError("screen cast: " + reason);
    end();
    keep({});
    const std::lock_guard lock(state.mutex);
    state.failures = 0;
    state.status = {.wasRefused = true};
}

/// The desktop ended the session: its user pressed stop, the monitor has gone, or the screen locks,
/// which GNOME allows no cast to outlive (its shell says so before or after). To go on by the token
/// would override the first.
void ScreenCastPortal::Session::closed() {
    sessionPath.clear();
    end();
    {
        const std::lock_guard lock(state.mutex);
        state.notBefore = ScreenCastState::Time::max();
    }
    if (options.isInFront())
        after(options.lockPatience, &Session::decideWhyClosed);
    else
        decideWhyClosed();
}

void ScreenCastPortal::Session::decideWhyClosed() {
    {
        const std::lock_guard lock(state.mutex);
        // Something else may have begun meanwhile.
        if (state.notBefore != ScreenCastState::Time::max())
            return;
        state.notBefore = {};
        if (!state.token.empty() && !options.isInFront())
            return logInfo("the screen cast rests while the session is locked");
    }
    refuse("the desktop ended it");
}

/// Calls `then` a little later on this thread, if the session is still there.
void ScreenCastPortal::Session::after(std::chrono::milliseconds pause, void (Session::*then)()) {
    struct Later {
        std::weak_ptr<Session> session;
        void (Session::*then)();
    };
    const std::unique_ptr<GSource, desktop::GDeleter> source(
        g_timeout_source_new(static_cast<guint>(pause.count())));
    const auto call = [](gpointer data) -> gboolean {
        const auto* later = static_cast<Later*>(data);
        if (const auto session = later->session.lock())
            (*session.*later->then)();
        return G_SOURCE_REMOVE;
    };
    const auto forget = [](gpointer data) {
        const std::unique_ptr<Later> owned(static_cast<Later*>(data));
    };
    g_source_set_callback(source.get(), call,
                          std::make_unique<Later>(Later{weak_from_this(), then}).release(), forget);
    g_source_attach(source.get(), g_main_context_get_thread_default());
}

void ScreenCastPortal::Session::withdraw() {
    end();
    keep({});
    const std::lock_guard lock(state.mutex);
    state.failures = 0;
    state.notBefore = {};
    state.status = {};
}

void ScreenCastPortal::Session::close() {
    end();
    // Left to the connection's end, it would let go of its hold on the session after the thread.
    if (ownerSignal != 0)
        g_dbus_connection_signal_unsubscribe(bus.get(), std::exchange(ownerSignal, 0));
}

void ScreenCastPortal::Session::end(bool startsAgain) {
    ++generation;
    request.reset();
    if (closedSignal != 0)
        g_dbus_connection_signal_unsubscribe(bus.get(), std::exchange(closedSignal, 0));
    if (!sessionPath.empty())
        desktop::callBus(
            bus.get(),
            {service, std::exchange(sessionPath, {}), "org.freedesktop.portal.Session", "Close"},
            nullptr, "()", static_cast<int>(options.stepPatience.count()), [](GVariant*, bool) {},
            G_DBUS_CALL_FLAGS_NO_AUTO_START);
    std::shared_ptr<FrameStream> former;
    {
        const std::lock_guard lock(state.mutex);
        former = std::exchange(state.stream, nullptr);
        state.isStarting = startsAgain;
    }
    state.changed.notify_all();
}

void ScreenCastPortal::Session::keep(const std::string& token) {
    const std::string kept = token.size() <= maxTokenBytes ? token : std::string();
    {
        const std::lock_guard lock(state.mutex);
        if (std::exchange(state.token, kept) == kept)
            return;
    }
    if (options.keepToken)
        options.keepToken(kept);
}

} // namespace mnemora::portal
