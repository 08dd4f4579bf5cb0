#pragma once
// What a test of the desktop adapters needs of a real session: programs that end with it, windows
// of its own with any properties, and the adapters on a real main loop.

#include "Linux/Accessibility/AccessibleWindows.h"
#include "Linux/Desktop/ApplicationCatalogue.h"
#include "Linux/Desktop/DesktopWorkspace.h"
#include "Linux/Desktop/FocusedWindowTitles.h"
#include "Linux/Desktop/FrontContentGuard.h"
#include "Linux/Desktop/QtMainLoop.h"
#include "Linux/Desktop/SessionState.h"
#include "Linux/X11/Connection.h"

#include "desktop/Program.h"

#include <QCoreApplication>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>
#include <xcb/xcb.h>

namespace mnemora::desktop {

struct Disconnect {
    void operator()(xcb_connection_t* connection) const { xcb_disconnect(connection); }
};
using OwnConnection = std::unique_ptr<xcb_connection_t, Disconnect>;

/// A window of the test's own.
class OwnWindow {
  public:
    struct Marks {
        std::string title;                                      // _NET_WM_NAME
        std::string oldTitle = {};                              // WM_NAME
        std::string oldTitleType = "STRING";                    // its type
        std::string windowClass = std::string("Test\0Test", 9); // WM_CLASS
        bool coversScreen = false; // as a locker does, without the window manager
    };

    /// Maps a window with these properties; `connection` outlives it.
    OwnWindow(xcb_connection_t* connection, const Marks& marks);
    ~OwnWindow();
    OwnWindow(const OwnWindow&) = delete;
    OwnWindow& operator=(const OwnWindow&) = delete;

    [[nodiscard]] std::uint32_t identifier() const { return window_; }
    void retitle(const std::string& title) const;
    /// Asks the window manager to bring it to the front.
    void activate() const;
    /// Asks the window manager to let it fill the screen and waits until it does.
    void fillScreen() const;

  private:
    void ask(const char* message, std::uint32_t first, std::uint32_t second) const;
    void set(const char* property, const char* type, const std::string& value) const;
    [[nodiscard]] xcb_atom_t atom(const std::string& name) const;

    xcb_connection_t* connection_;
    xcb_window_t window_;
};

/// The adapters as the program composes them, with the application object that their loop needs.
/// One at a time, on the main thread.
class DesktopSession {
  public:
    DesktopSession();

    /// Runs the main loop until the condition holds; false when it doesn't within 30 seconds.
    template <class Condition>
    [[nodiscard]] bool runUntil(Condition holds) {
        const auto bound = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (!holds()) {
            if (std::chrono::steady_clock::now() > bound)
                return false;
            QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return true;
    }

    /// The title of the focused window of the frontmost application.
    [[nodiscard]] std::optional<std::string> frontTitle();
    [[nodiscard]] bool waitForFront(const OwnWindow& window);

    int argumentCount = 1;
    char name[5] = "test";
    char* arguments[2] = {name, nullptr};
    QCoreApplication application{argumentCount, arguments};
    std::shared_ptr<QtMainLoop> mainLoop = std::make_shared<QtMainLoop>();
    std::shared_ptr<GLibThread> listener = std::make_shared<GLibThread>("test-listener");
    std::shared_ptr<atspi::AccessibleWindows> windows =
        std::make_shared<atspi::AccessibleWindows>();
    std::shared_ptr<const ApplicationCatalogue> catalogue;
    std::shared_ptr<const SessionState> session;
    std::shared_ptr<DesktopWorkspace> workspace;
    std::unique_ptr<FocusedWindowTitles> titles;
    std::unique_ptr<FrontContentGuard> guard;
};

} // namespace mnemora::desktop
