#pragma once
// Pictures of the screen in an X11 session. What is private is never pictured: right before and
// right after each shot the guard of the window in front is asked, and which parts of the screen
// show another window that must not be read; those parts are black in the picture.

#include "Linux/FrontWindowGuard.h"
#include "Linux/Screen/X11Screen.h"
#include "Linux/WithheldRegions.h"
#include "Platform/ScreenCapture.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace mnemora::x11 {

/// The picture, taken at `place` on the screen, with these parts of the screen in black.
[[nodiscard]] Image blackened(const Image& image, const Monitor& place, const desktop::Area& parts);

/// Any thread; one picture at a time. The picture is taken while the displays are listed, so that
/// what becomes private meanwhile is no failure but leaves no display.
class X11ScreenCapture final : public ScreenCapture {
  public:
    /// `hasRoom` says whether a picture taken now would be recognised; while it wouldn't, there is
    /// no display. `windowChanges` grows whenever other windows come to the screen, as of the
    /// last answer of guard and regions; without one nothing is known of such changes.
    X11ScreenCapture(std::shared_ptr<FrontWindowGuard> guard,
                     std::shared_ptr<WithheldRegions> regions, std::function<bool()> hasRoom,
                     std::function<std::uint64_t()> windowChanges);

    /// False in a Wayland session, where the X server's screen reads black without an error, and
    /// when the server couldn't be reached or refused its pixels when last tried. Answers at once;
    /// a lost server is looked for on a thread of its own.
    bool isPermitted() override;
    /// Pictures the first display.
    Outcome<std::vector<Display>> displays() override;
    /// The picture that `displays` took, once.
    Outcome<Image> image(const Display& display, int width, int height) override;

  private:
    /// The server's screen, shared with the thread that looks for it.
    struct Server {
        bool connect(); // with `mutex` held

        std::mutex mutex;
        std::unique_ptr<X11Screen> screen; // guarded by mutex
        std::atomic<bool> isReadable = false;
        std::atomic<bool> isSought = false;
    };
    struct Shot {
        std::vector<Monitor> monitors;
        Image image; // of the first
    };
    struct Picture {
        Display display;
        Image image;
    };
    void seekServer();
    [[nodiscard]] std::uint64_t windowChanges() const;
    Outcome<Shot> shot();
    void keep(std::optional<Picture> picture);

    const std::shared_ptr<FrontWindowGuard> guard_;
    const std::shared_ptr<WithheldRegions> regions_;
    const std::function<bool()> hasRoom_;
    const std::function<std::uint64_t()> windowChanges_;
    const std::shared_ptr<Server> server_ = std::make_shared<Server>();
    std::mutex mutex_;
    std::optional<Picture> picture_; // guarded by mutex_
};

} // namespace mnemora::x11
