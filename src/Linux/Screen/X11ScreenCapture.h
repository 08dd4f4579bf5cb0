#pragma once
// Pictures of the screen in an X11 session. What is private is never pictured: the guard of the
// window in front is asked right before and right after each shot.

#include "Linux/FrontWindowGuard.h"
#include "Linux/Screen/X11Screen.h"
#include "Platform/ScreenCapture.h"

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>

namespace mnemora::x11 {

/// Any thread; one picture at a time.
class X11ScreenCapture final : public ScreenCapture {
  public:
    /// `hasRoom` says whether a picture taken now would be recognised; while it wouldn't, there is
    /// no display.
    X11ScreenCapture(std::shared_ptr<FrontWindowGuard> guard, std::function<bool()> hasRoom);

    /// False in a Wayland session, where the X server's screen reads black without an error, and
    /// when the server can't be reached or refuses its pixels.
    bool isPermitted() override;
    Outcome<std::vector<Display>> displays() override;
    Outcome<Image> image(const Display& display, int width, int height) override;

  private:
    bool connect();
    Outcome<Image> shot(const Display& display, int width, int height);

    const std::shared_ptr<FrontWindowGuard> guard_;
    const std::function<bool()> hasRoom_;
    std::mutex mutex_;
    std::unique_ptr<X11Screen> screen_; // guarded by mutex_
    std::atomic<bool> readable_ = false;
};

} // namespace mnemora::x11
