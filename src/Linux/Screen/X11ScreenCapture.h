#pragma once
// Pictures of the screen in an X11 session.

#include "Linux/Screen/GuardedScreenCapture.h"
#include "Linux/Screen/X11Screen.h"

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>

namespace mnemora::x11 {

class X11ScreenCapture final : public GuardedScreenCapture {
  public:
    explicit X11ScreenCapture(CaptureChecks checks);

    /// False in a Wayland session, where the X server's screen reads black without an error, and
    /// when the server couldn't be reached or refused its pixels when last tried. Answers at once;
    /// a lost server is looked for on a thread of its own.
    bool isPermitted() override;

  private:
    /// The server's screen, shared with the thread that looks for it.
    struct Server {
        std::mutex mutex;                  // one picture at a time
        std::unique_ptr<X11Screen> screen; // guarded by mutex
        std::mutex seeking;
        std::condition_variable ended;    // a search has
        std::unique_ptr<X11Screen> found; // guarded by seeking
        bool isSought = false;            // guarded by seeking
        std::atomic<bool> isReadable = false;
    };
    void seekServer();
    /// What is found within two seconds; null where that is nothing.
    std::unique_ptr<X11Screen> soughtScreen();
    Outcome<Shot> shot() override;

    const std::shared_ptr<Server> server_ = std::make_shared<Server>();
};

} // namespace mnemora::x11
