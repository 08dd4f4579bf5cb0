#pragma once
// Pictures of the screen in an X11 session.

#include "Linux/Screen/GuardedScreenCapture.h"
#include "Linux/Screen/X11Screen.h"

#include <atomic>
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
        bool connect(); // with `mutex` held

        std::mutex mutex;
        std::unique_ptr<X11Screen> screen; // guarded by mutex
        std::atomic<bool> isReadable = false;
        std::atomic<bool> isSought = false;
    };
    void seekServer();
    Outcome<Shot> shot() override;

    const std::shared_ptr<Server> server_ = std::make_shared<Server>();
};

} // namespace mnemora::x11
