#pragma once
// Pictures of the screen in an X11 session. What is private is never pictured: right before and
// right after each shot the guard of the window in front is asked, and which parts of the screen
// show another window that must not be read; those parts are black in the picture.

#include "Linux/FrontWindowGuard.h"
#include "Linux/Screen/X11Screen.h"
#include "Linux/WithheldRegions.h"
#include "Platform/ScreenCapture.h"

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>

namespace mnemora::x11 {

/// The picture, taken at `place` on the screen, with these parts of the screen in black.
[[nodiscard]] Image blackened(const Image& image, const Monitor& place, const desktop::Area& parts);

/// Any thread; one picture at a time.
class X11ScreenCapture final : public ScreenCapture {
  public:
    /// `hasRoom` says whether a picture taken now would be recognised; while it wouldn't, there is
    /// no display.
    X11ScreenCapture(std::shared_ptr<FrontWindowGuard> guard,
                     std::shared_ptr<WithheldRegions> regions, std::function<bool()> hasRoom);

    /// False in a Wayland session, where the X server's screen reads black without an error, and
    /// when the server can't be reached or refuses its pixels.
    bool isPermitted() override;
    Outcome<std::vector<Display>> displays() override;
    Outcome<Image> image(const Display& display, int width, int height) override;

  private:
    bool connect();
    /// A picture and where on the whole screen it was taken.
    struct Shot {
        Image image;
        Monitor place;
    };
    Outcome<Shot> shot(const Display& display, int width, int height);

    const std::shared_ptr<FrontWindowGuard> guard_;
    const std::shared_ptr<WithheldRegions> regions_;
    const std::function<bool()> hasRoom_;
    std::mutex mutex_;
    std::unique_ptr<X11Screen> screen_; // guarded by mutex_
    std::atomic<bool> readable_ = false;
};

} // namespace mnemora::x11
