#pragma once
// A connection to the X server with the few bounded readers that the program needs. Errors of
// single requests are absent values: any window may be gone before its answer is read. A server
// that goes away makes every later answer absent.

#include "Linux/Desktop/FrontWindow.h"
#include "Linux/Desktop/StackedWindow.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

struct xcb_connection_t;

namespace mnemora::x11 {

/// Frees what xcb hands out with malloc.
struct Freed {
    void operator()(void* memory) const { std::free(memory); }
};
template <class T>
using Reply = std::unique_ptr<T, Freed>;

/// A window as the protocol numbers it (xcb_window_t).
using Window = std::uint32_t;
/// A name as the server numbers it (xcb_atom_t).
using Atom = std::uint32_t;

/// The value of a property.
struct Property {
    Atom type = 0;
    std::string bytes;
};

/// The names that the readers use, as this server numbers them.
struct Atoms {
    Atom activeWindow, clientList, windowName, windowPid, utf8, compoundText, gtkApplicationId,
        kdeDesktopFile, supportingManager, desktop, currentDesktop, state, stateHidden, opacity,
        opaqueRegion, compositor, clientStacking;
};

/// One thread at a time; every operation waits for the server.
class Connection {
  public:
    /// To the display of the environment; null when there is none. `reason`, where given, then
    /// receives why.
    [[nodiscard]] static std::unique_ptr<Connection> open(std::string* reason = nullptr);

    [[nodiscard]] bool isAlive() const;
    [[nodiscard]] int descriptor() const;
    /// Asks for notices when the active window, the windows or the current desktop change.
    void followActiveWindow();
    /// Asks for notices when the title of this window changes, and no more for the former one's.
    void followTitle(Window window);
    /// Takes all waiting notices; true when the active window may have changed.
    bool takeNotices();
    /// Whether the title of the followed window may have changed since this was last asked.
    [[nodiscard]] bool takeTitleNotice() { return std::exchange(isRetitled_, false); }
    /// Whether a notice taken so far has still to be looked into by `countChanges` or
    /// `takeTitleNotice`.
    [[nodiscard]] bool mayHaveChanged() const { return !noticed_.empty() || isRetitled_; }
    /// How often other windows came to the screen so far, by what the notices led to: window
    /// managers also write anew what is the same.
    [[nodiscard]] std::uint64_t countChanges();

    /// The window with the focus, as the window manager states it, or, without one that does, as
    /// the server's own focus says.
    [[nodiscard]] std::optional<Window> activeWindow();
    /// The windows that the window manager manages, oldest first; none without one.
    [[nodiscard]] std::vector<Window> clients();
    /// Class, instance, process and desktop entry; absent when the window is gone.
    [[nodiscard]] std::optional<desktop::WindowIdentity> identity(Window window);
    /// The title in valid UTF-8; of one beyond the bound the beginning and the end.
    [[nodiscard]] std::optional<std::string> title(Window window);
    /// Whether the monitors are switched off (DPMS), or a screen saver or a locker covers what the
    /// window manager shows.
    [[nodiscard]] bool isScreenCovered();
    /// How a window's identity is found, where the caller knows a faster way than asking anew.
    using Identify = std::function<std::optional<desktop::WindowIdentity>(Window)>;
    /// The windows on the screen; absent when they can't be listed.
    [[nodiscard]] std::optional<desktop::WindowStack> stack(const Identify& identify);

  private:
    struct Disconnect {
        void operator()(xcb_connection_t* connection) const;
    };

    Connection(xcb_connection_t* connection, Window root, int screen);
    void internAtoms(int screen);
    void queryExtensions();
    [[nodiscard]] std::optional<Property> property(Window window, Atom name, std::size_t maxBytes);
    [[nodiscard]] std::string mark(Window window, Atom name);
    [[nodiscard]] int processOf(Window window);
    [[nodiscard]] bool isLocal(Window window);
    [[nodiscard]] std::optional<Window> focusedTopLevel();
    [[nodiscard]] bool isSwitchedOff();
    [[nodiscard]] bool isBehindUnmanagedWindow();
    [[nodiscard]] bool covers(Window window);
    [[nodiscard]] std::vector<Window> children(Window window);
    [[nodiscard]] std::optional<Window> parent(Window window);
    [[nodiscard]] std::optional<std::vector<Window>> viewableTopLevels();
    struct TopLevel;
    [[nodiscard]] std::optional<std::vector<TopLevel>> topLevelsOnScreen();
    void findClients(std::vector<TopLevel>& topLevels);
    [[nodiscard]] std::optional<Window> namedWindow(Window window);
    [[nodiscard]] bool mapsUnseenDesktops();
    [[nodiscard]] bool isElsewhere(Window client, bool isOneDesktopSeen);
    [[nodiscard]] std::optional<std::uint32_t> number(Window window, Atom name);
    [[nodiscard]] desktop::Area coverOf(const TopLevel& topLevel, bool isComposited);
    [[nodiscard]] desktop::Area opaqueRegion(const TopLevel& topLevel);
    [[nodiscard]] std::string text(const Property& property) const;

    std::unique_ptr<xcb_connection_t, Disconnect> connection_;
    Window root_;
    Atoms atoms_{};
    std::map<Atom, std::string> windowLists_; // what each said when last compared
    std::set<Atom> noticed_;
    Window titled_ = 0; // whose title is followed
    bool isRetitled_ = false;
    std::uint64_t changes_ = 0;
    bool hasClientIds_ = false;
    bool hasPowerState_ = false;
    bool hasScreenSaver_ = false;
    bool hasShapes_ = false;
};

} // namespace mnemora::x11
