#include "Linux/Desktop/DesktopEntries.h"

#include "Linux/Desktop/GLibHandles.h"
#include "Log.h"
#include "Text/Encoding.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <gio/gdesktopappinfo.h>
#include <pthread.h>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

namespace mnemora::desktop {
namespace {

namespace fs = std::filesystem;
using Steady = std::chrono::steady_clock;

// Who installs much or writes without end costs a tenth of a processor at most.
constexpr auto shortestRest = std::chrono::seconds(1);
constexpr int restsPerReading = 10;
constexpr Steady::duration longestRest = std::chrono::seconds(30);
// GIO tells of no change where it hasn't read, so whether a trap has gone is looked at: soon, and
// ever more seldom while it stays.
constexpr Steady::duration shortestRestAtTrap = std::chrono::seconds(5);
constexpr Steady::duration longestRestAtTrap = std::chrono::minutes(5);
// As long as the first application isn't named wrongly because a disk is slow.
constexpr auto patienceAtStart = std::chrono::milliseconds(1500);

std::string textOf(const char* text) {
    return text == nullptr ? std::string() : cleanText(text);
}

/// Programs that start others say nothing about whose window it is.
bool isLauncher(const std::string& program) {
    constexpr std::string_view launchers[] = {"env",     "flatpak",    "snap",  "sh",      "bash",
                                              "python3", "perl",       "java",  "wine",    "mono",
                                              "gjs",     "gtk-launch", "steam", "xdg-open"};
    return std::find(std::begin(launchers), std::end(launchers), program) != std::end(launchers);
}

bool startsWebPage(const char* command) {
    const std::string_view text = command == nullptr ? "" : command;
    return text.find("--app-id=") != text.npos || text.find("--app=") != text.npos ||
           text.find("--application-mode") != text.npos;
}

/// Whether to read it could take for ever: a pipe, a device, or far more than an entry holds.
bool isTrap(const fs::directory_entry& file) {
    constexpr std::uintmax_t mostBytes = 16U << 20;
    std::error_code error;
    const auto status = file.status(error);
    if (error || fs::is_directory(status) || !fs::exists(status))
        return false;
    if (!fs::is_regular_file(status))
        return true;
    const auto size = file.file_size(error);
    return !error && size > mostBytes;
}

/// The first such file where GIO, which opens whatever it finds, looks for entries; the folder
/// itself where it holds more than any system's; a folder below it that is deeper than any, as
/// where a link leads back: GIO follows two of those for ever.
std::optional<fs::path> trapBelow(const fs::path& folder) {
    constexpr int deepest = 8;
    constexpr int mostFiles = 50'000;
    int files = 0;
    constexpr auto options = fs::directory_options::follow_directory_symlink |
                             fs::directory_options::skip_permission_denied;
    std::error_code error;
    for (fs::recursive_directory_iterator at(folder, options, error), end; !error && at != end;
         at.increment(error)) {
        if (isTrap(*at))
            return at->path();
        if (++files > mostFiles)
            return folder;
        if (at.depth() >= deepest && at->is_directory(error))
            return at->path();
    }
    return std::nullopt;
}

std::optional<fs::path> trapAmongEntries() {
    if (auto trap = trapBelow(fs::path(g_get_user_data_dir()) / "applications"))
        return trap;
    for (const gchar* const* folder = g_get_system_data_dirs(); *folder != nullptr; ++folder)
        if (auto trap = trapBelow(fs::path(*folder) / "applications"))
            return trap;
    return std::nullopt;
}

std::vector<DesktopEntry> installedEntries() {
    std::vector<DesktopEntry> entries;
    GList* all = g_app_info_get_all();
    for (GList* item = all; item != nullptr; item = item->next)
        if (G_IS_DESKTOP_APP_INFO(item->data))
            entries.push_back(desktopEntryOf(G_DESKTOP_APP_INFO(item->data)));
    g_list_free_full(all, g_object_unref);
    return entries;
}

} // namespace

DesktopEntry desktopEntryOf(GDesktopAppInfo* info) {
    GAppInfo* application = G_APP_INFO(info);
    DesktopEntry entry;
    entry.identifier = textOf(g_app_info_get_id(application));
    constexpr std::string_view suffix = ".desktop";
    if (entry.identifier.ends_with(suffix))
        entry.identifier.resize(entry.identifier.size() - suffix.size());
    entry.name = textOf(g_app_info_get_display_name(application));
    entry.windowClass = textOf(g_desktop_app_info_get_startup_wm_class(info));
    const std::string program = textOf(g_app_info_get_executable(application));
    entry.program = program.substr(program.rfind('/') + 1);
    if (isLauncher(entry.program))
        entry.program.clear();
    entry.isWebApplication = startsWebPage(g_app_info_get_commandline(application));
    entry.isShown = g_app_info_should_show(application) != FALSE;
    return entry;
}

struct DesktopEntries::Shared {
    std::mutex mutex;
    std::condition_variable changed;
    // Guarded by mutex.
    std::shared_ptr<const EntryIndex> index =
        std::make_shared<const EntryIndex>(std::vector<DesktopEntry>());
    bool isOutdated = true;
    bool isRead = false; // or tried to be
    bool isOver = false;
    // The reading thread only.
    std::optional<fs::path> trap;
    Steady::duration restAtTrap = shortestRestAtTrap;

    /// Keeps what is known where reading might not end.
    void read() {
        auto former = std::exchange(trap, trapAmongEntries());
        if (trap && trap != former)
            logError("desktop entries stay unread because of " + trap->string());
        auto fresh = trap ? nullptr : std::make_shared<const EntryIndex>(installedEntries());
        const std::lock_guard lock(mutex);
        if (fresh)
            index = std::move(fresh);
        isRead = true;
        changed.notify_all();
    }

    /// How long to let be what took so long to read.
    Steady::duration restAfter(Steady::duration reading) {
        const auto rest =
            std::clamp<Steady::duration>(restsPerReading * reading, shortestRest, longestRest);
        const auto following =
            trap ? std::min(2 * restAtTrap, longestRestAtTrap) : shortestRestAtTrap;
        const auto atTrap = std::exchange(restAtTrap, following);
        return trap ? std::max(rest, atTrap) : rest;
    }

    /// Reads whenever the entries have changed, after a rest.
    void follow() {
        std::unique_lock lock(mutex);
        const auto isEnding = [this] { return isOver; };
        while (changed.wait(lock, [this] { return isOutdated || isOver; }), !isOver) {
            isOutdated = false;
            lock.unlock();
            const auto began = Steady::now();
            read();
            const auto rest = restAfter(Steady::now() - began);
            lock.lock();
            changed.wait_for(lock, rest, isEnding);
            isOutdated = isOutdated || trap;
        }
    }

    void set(bool Shared::*what) {
        const std::lock_guard lock(mutex);
        this->*what = true;
        changed.notify_all();
    }
};

struct DesktopEntries::Monitor {
    GRef<GAppInfoMonitor> monitor;
    gulong handler = 0;
    std::shared_ptr<Shared> shared;

    explicit Monitor(std::shared_ptr<Shared> target)
        : monitor(g_app_info_monitor_get()), shared(std::move(target)) {
        handler = g_signal_connect(monitor.get(), "changed",
                                   G_CALLBACK(+[](GAppInfoMonitor*, gpointer data) {
                                       static_cast<Shared*>(data)->set(&Shared::isOutdated);
                                   }),
                                   shared.get());
    }
    ~Monitor() { g_signal_handler_disconnect(monitor.get(), handler); }
    Monitor(const Monitor&) = delete;
    Monitor& operator=(const Monitor&) = delete;
};

DesktopEntries::DesktopEntries(GLibThread& thread)
    : thread_(thread), shared_(std::make_shared<Shared>()) {
    thread_.invokeAndWait([&] { monitor_ = std::make_unique<Monitor>(shared_); });
    try {
        // Nobody waits for its end: a disk may keep it.
        std::thread([shared = shared_] {
            pthread_setname_np(pthread_self(), "desktop-entries");
            shared->follow();
        }).detach();
    } catch (const std::system_error&) {
        logError("desktop entries stay unread: no thread is left");
        return;
    }
    std::unique_lock lock(shared_->mutex);
    shared_->changed.wait_for(lock, patienceAtStart, [this] { return shared_->isRead; });
}

DesktopEntries::~DesktopEntries() {
    shared_->set(&Shared::isOver);
    thread_.invokeAndWait([&] { monitor_.reset(); });
}

std::optional<DesktopEntry> DesktopEntries::find(const WindowIdentity& window) const {
    std::unique_lock lock(shared_->mutex);
    const auto index = shared_->index;
    lock.unlock();
    return index->find(window);
}

} // namespace mnemora::desktop
