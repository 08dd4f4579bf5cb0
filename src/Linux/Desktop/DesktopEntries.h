#pragma once
// The desktop entries of this system and which of them a window belongs to, by the Desktop Entry
// Specification 1.5 (https://specifications.freedesktop.org/desktop-entry-spec/1.5/).

#include "Linux/Desktop/FrontWindow.h"
#include "Linux/Desktop/GLibThread.h"

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

struct _GDesktopAppInfo;

namespace mnemora::desktop {

/// What the program needs of a desktop entry.
struct DesktopEntry {
    /// Its file's name without ".desktop".
    std::string identifier;
    /// Its name in the user's language.
    std::string name;
    /// StartupWMClass; empty when it has none.
    std::string windowClass = {};
    /// The program that its command starts, without the folder; empty for launchers of others
    /// (env, flatpak, an interpreter).
    std::string program = {};
    /// It starts a web page in a window of its own.
    bool isWebApplication = false;
    /// Menus show it.
    bool isShown = true;

    bool operator==(const DesktopEntry&) const = default;
};

/// What is needed of an entry that GIO has read; all its texts are clean.
[[nodiscard]] DesktopEntry desktopEntryOf(_GDesktopAppInfo* info);

/// Abstract so that tests bring their own entries. Any thread, at once.
struct EntrySource {
    virtual ~EntrySource() = default;
    [[nodiscard]] virtual std::optional<DesktopEntry> find(const WindowIdentity& window) const = 0;
};

/// Entries arranged for finding: by the identifier that the window or its sandbox states, by
/// StartupWMClass, by an identifier equal to the class, by its last part, by the program.
class EntryIndex : public EntrySource {
  public:
    explicit EntryIndex(std::vector<DesktopEntry> entries);
    [[nodiscard]] std::optional<DesktopEntry> find(const WindowIdentity& window) const override;

  private:
    using Map = std::unordered_map<std::string, std::size_t>;
    [[nodiscard]] const DesktopEntry* in(const Map& map, const std::string& key) const;

    std::vector<DesktopEntry> entries_;
    Map byIdentifier_, byClass_, byLastPart_, byProgram_;
};

/// The entries installed for this user, read when it is made and again whenever they change, on a
/// thread of its own that rests after each reading: a change is known after a second, or ten times
/// what reading takes. Where reading might never end, what was known stays; that this is over is
/// known after 5 s at first, later after as long as it lasted, at most 5 min.
class DesktopEntries : public EntrySource {
  public:
    /// Waits for the first reading (some ten milliseconds), at most 1.5 s; until it is over nothing
    /// is found. Listens on `thread`, which outlives it.
    explicit DesktopEntries(GLibThread& thread);
    ~DesktopEntries() override;
    DesktopEntries(const DesktopEntries&) = delete;
    DesktopEntries& operator=(const DesktopEntries&) = delete;

    [[nodiscard]] std::optional<DesktopEntry> find(const WindowIdentity& window) const override;

  private:
    struct Shared;
    struct Monitor;
    GLibThread& thread_;
    std::shared_ptr<Shared> shared_;
    std::unique_ptr<Monitor> monitor_; // made and ended on the thread
};

} // namespace mnemora::desktop
