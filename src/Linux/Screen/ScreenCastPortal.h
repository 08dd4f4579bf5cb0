#pragma once
// The desktop's screen cast, by its portal
// (https://flatpak.github.io/xdg-desktop-portal/docs/doc-org.freedesktop.portal.ScreenCast.html).
// One session serves the whole run. The consent outlives it by a token that is good for one start
// and replaced at each. A dialog is shown only when ask() was called: a start with a token that
// takes longer than a moment would have become one and is withdrawn, and the token with it. The
// token is kept only where the desktop ends the cast because it locks.

#include "Linux/Desktop/GLibThread.h"
#include "Linux/Screen/FrameStream.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace mnemora::portal {

/// Any thread; everything that is said to the portal is said on the thread given, where nobody
/// waits.
class ScreenCastPortal {
  public:
    enum class Presence { unknown, absent, present };

    /// The times suit the program; tests shorten them.
    struct Options {
        std::string token = {};                            ///< kept from the last run; empty: none
        std::function<void(const std::string&)> keepToken; ///< on the thread; empty: forget it
        /// Opens PipeWire's cast; an empty function, with the cause in the text, where it can't.
        std::function<FrameStreamOpener(std::string&)> loadOpener = loadFrameStreamOpener;
        bool sendsChangesOnly = false; ///< as in CastSource
        /// False while the session is locked or another one is in front; any thread.
        std::function<bool()> isInFront = [] { return true; };
        /// For each step that shows no dialog; starting the portal is included in the first.
        std::chrono::milliseconds stepPatience = std::chrono::seconds(8);
        /// For a start with a token: longer means that the desktop is asking.
        std::chrono::milliseconds restorePatience = std::chrono::seconds(5);
        /// For the user.
        std::chrono::milliseconds dialogPatience = std::chrono::minutes(10);
        /// The pause after a failed start, doubled with each further one up to `maxPause`.
        std::chrono::milliseconds pause = std::chrono::seconds(10);
        std::chrono::milliseconds maxPause = std::chrono::minutes(10);
        /// How long a desktop may take to say that it is locked once it has ended the cast for it.
        std::chrono::milliseconds lockPatience = std::chrono::seconds(3);
    };

    /// Looks for the portal of the session's message bus; with a token it starts the cast too.
    /// `thread` outlives it.
    ScreenCastPortal(desktop::GLibThread& thread, Options options);
    /// Ends the cast.
    ~ScreenCastPortal();
    ScreenCastPortal(const ScreenCastPortal&) = delete;
    ScreenCastPortal& operator=(const ScreenCastPortal&) = delete;

    /// Whether there is a portal that can cast screens and PipeWire to receive them. At once.
    [[nodiscard]] Presence presence() const;
    /// Waits until that is known, at most so long.
    Presence waitUntilKnown(std::chrono::milliseconds patience) const;

    /// Whether a cast runs or a token promises one. At once. After a failed start it is false, and
    /// asking is what tries again when the time has come.
    [[nodiscard]] bool isPermitted();
    /// The running cast; waits for one that is being started, at most so long. Null without one.
    [[nodiscard]] std::shared_ptr<FrameStream> stream(std::chrono::milliseconds patience);
    /// Ends the cast and starts it again with the token, when it gives no pictures any more; a
    /// living one goes on where there is no token.
    void restart();

    /// Shows the desktop's dialog, in place of one that is open.
    void ask();
    /// Ends the cast and forgets the token.
    void withdraw();

    struct Status {
        bool isAsking = false;
        bool wasRefused = false;
        bool lastFailed = false;
    };
    /// At once.
    [[nodiscard]] Status status() const;

  private:
    struct Session;

    desktop::GLibThread& thread_;
    std::shared_ptr<Session> session_;
};

} // namespace mnemora::portal
