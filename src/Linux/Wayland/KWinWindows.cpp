#include "Linux/Wayland/KWinWindows.h"

#include "Linux/Desktop/BusCalls.h"
#include "Linux/Desktop/FrontWindow.h"
#include "Log.h"
#include "Support/UserFolders.h"
#include "Text/Encoding.h"

#include <algorithm>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

namespace mnemora::wayland {
namespace {

using desktop::BusMatch;
using desktop::callBus;
using desktop::GRef;

constexpr const char* kwin = "org.kde.KWin";
constexpr const char* scripting = "org.kde.kwin.Scripting";
constexpr const char* scriptingPath = "/Scripting";
constexpr const char* plugin = "mnemora-windows";
constexpr const char* path = "/app/mnemora/Windows";
constexpr const char* description = "<node><interface name='app.mnemora.Windows'><method name="
                                    "'Tell'><arg type='s' direction='in'/></method></interface>"
                                    "</node>";
constexpr int patienceMs = 3000;
constexpr std::size_t maxWindows = 4096;
constexpr std::size_t maxTitleBytes = 65536; // as of a window of the X server
constexpr std::size_t maxMessageBytes = 16 << 20;

// Names of both of KWin's generations, 5 and 6.
constexpr std::string_view script = R"(
function windows() { return workspace.windowList ? workspace.windowList() : workspace.clientList(); }
function tell() {
    var active = workspace.windowList ? workspace.activeWindow : workspace.activeClient;
    var all = windows().filter(function (w) { return !w.desktopWindow && !w.dock; });
    callDBus("@", "/app/mnemora/Windows", "app.mnemora.Windows", "Tell",
             JSON.stringify(all.map(function (w) {
        return {id: String(w.internalId), title: String(w.caption), minimized: !!w.minimized,
                application: String(w.desktopFileName || "") || String(w.resourceClass || ""),
                process: w.pid || 0,
                active: !!active && String(active.internalId) === String(w.internalId)};
    })));
}
function follow(w) {
    w.captionChanged.connect(tell);
    if (w.minimizedChanged) w.minimizedChanged.connect(tell);
}
windows().forEach(follow);
(workspace.windowAdded || workspace.clientAdded).connect(function (w) { follow(w); tell(); });
(workspace.windowRemoved || workspace.clientRemoved).connect(tell);
(workspace.windowActivated || workspace.clientActivated).connect(tell);
tell();
)";

/// Stays the same for a window, whatever else changes.
std::uint32_t numberOf(const std::string& identifier) {
    return static_cast<std::uint32_t>(std::hash<std::string>()(identifier)) | 1U;
}

std::string bounded(std::string text, std::size_t most = desktop::maxMarkBytes) {
    if (text.size() > most)
        text.resize(most);
    return cleanText(text);
}

ListedWindow windowOf(const nlohmann::json& item) {
    return {.number = numberOf(item.value("id", "")),
            .title = bounded(item.value("title", ""), maxTitleBytes),
            .applicationId = bounded(item.value("application", "")),
            .process = item.value("process", 0),
            .isActive = item.value("active", false),
            .isMinimized = item.value("minimized", false)};
}

bool areSame(const std::vector<ListedWindow>& before, const std::vector<ListedWindow>& now) {
    const auto isSame = [](const auto& one, const auto& other) { return !isChange(one, other); };
    return std::equal(before.begin(), before.end(), now.begin(), now.end(), isSame);
}

/// The script in a file of this user alone, where KWin can read it; empty when that failed.
std::string writtenScript(const std::string& text) {
    std::error_code error;
    const auto folder = userFolders::runtime();
    if (folder.empty() || !userFolders::makePrivate(folder))
        return {};
    const auto file = folder / "kwin-windows.js";
    std::ofstream(file) << text;
    // Whatever the umask: KWin has to read it, and nobody else.
    std::filesystem::permissions(file, std::filesystem::perms(0600), error);
    return std::filesystem::file_size(file, error) == text.size() ? file.string() : std::string();
}

} // namespace

std::string kwinScript(const std::string& busName) {
    std::string text(script);
    return text.replace(text.find('@'), 1, busName);
}

std::optional<std::vector<ListedWindow>> parseKWinWindows(std::string_view message) {
    if (message.size() > maxMessageBytes)
        return std::nullopt;
    try {
        const auto list = nlohmann::json::parse(message);
        if (!list.is_array() || list.size() > maxWindows)
            return std::nullopt;
        std::vector<ListedWindow> windows;
        for (const auto& item : list)
            windows.push_back(windowOf(item));
        return windows;
    } catch (const nlohmann::json::exception&) {
        return std::nullopt;
    }
}

// Callbacks hold it: the last one to come may come after the owner has gone.
struct KWinWindows::Listener : std::enable_shared_from_this<Listener> {
    std::function<void()> changed;
    bool isOver = false; // this thread only, as those below
    GRef<GDBusConnection> bus;
    std::string owner; // KWin's unique name; empty while there is none
    guint object = 0;

    mutable std::mutex mutex;
    std::condition_variable answered;
    KWinState state;                     // guarded by mutex
    bool isPresent = false;              // guarded by mutex
    std::uint64_t asked = 0, served = 0; // guarded by mutex

    void start();
    void follow();
    void setOwner(const std::string& name);
    void load();
    void publish(std::optional<std::vector<ListedWindow>> windows);
    void ping(std::uint64_t ticket);
    void end();

    static void called(GDBusConnection*, const gchar* sender, const gchar*, const gchar*,
                       const gchar*, GVariant* arguments, GDBusMethodInvocation* call, gpointer);
    static constexpr GDBusInterfaceVTable methods = {called, nullptr, nullptr, {}};
};

void KWinWindows::Listener::start() {
    const auto finish = [](GObject*, GAsyncResult* result, gpointer data) {
        const std::unique_ptr<std::shared_ptr<Listener>> self(
            static_cast<std::shared_ptr<Listener>*>(data));
        (*self)->bus.reset(g_bus_get_finish(result, nullptr));
        if ((*self)->bus && !(*self)->isOver)
            (*self)->follow();
    };
    g_bus_get(G_BUS_TYPE_SESSION, nullptr, finish,
              std::make_unique<std::shared_ptr<Listener>>(shared_from_this()).release());
}

void KWinWindows::Listener::follow() {
    g_dbus_connection_set_exit_on_close(bus.get(), FALSE);
    GDBusNodeInfo* node = g_dbus_node_info_new_for_xml(description, nullptr);
    object = g_dbus_connection_register_object(bus.get(), path, node->interfaces[0], &methods, this,
                                               nullptr, nullptr);
    g_dbus_node_info_unref(node);
    const BusMatch owners{.sender = "org.freedesktop.DBus",
                          .interface = "org.freedesktop.DBus",
                          .member = "NameOwnerChanged",
                          .firstArgument = kwin};
    [[maybe_unused]] const guint forLife = desktop::listenToBus(
        bus.get(), owners, [self = shared_from_this()](auto&, auto&, GVariant* arguments) {
            const gchar* after = "";
            g_variant_get_child(arguments, 2, "&s", &after);
            self->setOwner(after);
        });
    callBus(
        bus.get(),
        {"org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetNameOwner"},
        g_variant_new("(s)", kwin), "(s)", patienceMs,
        [self = shared_from_this()](GVariant* answer, bool) {
            const gchar* name = "";
            if (answer != nullptr)
                g_variant_get(answer, "(&s)", &name);
            self->setOwner(name);
        });
}

void KWinWindows::Listener::setOwner(const std::string& name) {
    if (isOver || name == owner)
        return;
    owner = name;
    {
        const std::lock_guard lock(mutex);
        isPresent = !owner.empty();
        served = asked;
    }
    answered.notify_all();
    publish(std::nullopt);
    if (!owner.empty())
        load();
}

// One of an earlier run may have been left behind; it would call a name that is gone.
void KWinWindows::Listener::load() {
    const std::string file =
        writtenScript(kwinScript(g_dbus_connection_get_unique_name(bus.get())));
    if (file.empty())
        return logError("no script for KWin could be written: its windows can't be told");
    callBus(bus.get(), {kwin, scriptingPath, scripting, "unloadScript"},
            g_variant_new("(s)", plugin), "(b)", patienceMs, [](GVariant*, bool) {});
    callBus(bus.get(), {kwin, scriptingPath, scripting, "loadScript"},
            g_variant_new("(ss)", file.c_str(), plugin), "(i)", patienceMs,
            [self = shared_from_this()](GVariant* answer, bool) {
                gint32 number = -1;
                if (answer != nullptr)
                    g_variant_get(answer, "(i)", &number);
                if (number < 0)
                    return logError("KWin takes no script: its windows can't be told");
                callBus(self->bus.get(), {kwin, scriptingPath, scripting, "start"}, nullptr, "()",
                        patienceMs, [](GVariant*, bool) {});
            });
}

void KWinWindows::Listener::called(GDBusConnection*, const gchar* sender, const gchar*,
                                   const gchar*, const gchar*, GVariant* arguments,
                                   GDBusMethodInvocation* call, gpointer data) {
    auto* self = static_cast<Listener*>(data);
    const gchar* message = "";
    g_variant_get(arguments, "(&s)", &message);
    // Anybody on the bus can call; only KWin knows. What can't be read says that something has
    // changed, so the former list holds no more.
    if (!self->owner.empty() && self->owner == sender)
        self->publish(parseKWinWindows(message));
    g_dbus_method_invocation_return_value(call, nullptr);
}

void KWinWindows::Listener::publish(std::optional<std::vector<ListedWindow>> windows) {
    {
        const std::lock_guard lock(mutex);
        const bool isSame = windows && state.windows && areSame(*state.windows, *windows);
        const bool isNothing = !windows && !state.windows;
        state.windows = std::move(windows);
        if (isSame || isNothing)
            return;
        ++state.changes;
        state.changedAt = std::chrono::steady_clock::now();
    }
    if (changed)
        changed();
}

// What KWin sent before its answer has been handled when that comes.
void KWinWindows::Listener::ping(std::uint64_t ticket) {
    const auto serve = [self = shared_from_this(), ticket](GVariant*, bool timedOut) {
        if (timedOut)
            return;
        {
            const std::lock_guard lock(self->mutex);
            self->served = std::max(self->served, ticket);
        }
        self->answered.notify_all();
    };
    if (!bus || owner.empty())
        return serve(nullptr, false);
    callBus(bus.get(), {owner, "/", "org.freedesktop.DBus.Peer", "Ping"}, nullptr, "()", patienceMs,
            serve);
}

void KWinWindows::Listener::end() {
    isOver = true;
    changed = {};
    if (bus && object != 0)
        g_dbus_connection_unregister_object(bus.get(), object);
    if (bus && !owner.empty())
        callBus(bus.get(), {kwin, scriptingPath, scripting, "unloadScript"},
                g_variant_new("(s)", plugin), "(b)", patienceMs, [](GVariant*, bool) {});
}

KWinWindows::KWinWindows(desktop::GLibThread& thread, std::function<void()> changed)
    : thread_(thread), listener_(std::make_shared<Listener>()) {
    listener_->changed = std::move(changed);
    thread_.invoke([listener = listener_] { listener->start(); });
}

KWinWindows::~KWinWindows() {
    thread_.invoke([listener = listener_] { listener->end(); });
}

std::optional<KWinState> KWinWindows::read(std::chrono::milliseconds patience) {
    std::unique_lock lock(listener_->mutex);
    if (!listener_->isPresent)
        return KWinState{};
    const std::uint64_t ticket = ++listener_->asked;
    lock.unlock();
    thread_.invoke([listener = listener_, ticket] { listener->ping(ticket); });
    lock.lock();
    if (!listener_->answered.wait_for(lock, patience, [&] { return listener_->served >= ticket; }))
        return std::nullopt;
    return listener_->state;
}

KWinState KWinWindows::last() const {
    const std::lock_guard lock(listener_->mutex);
    return listener_->state;
}

} // namespace mnemora::wayland
