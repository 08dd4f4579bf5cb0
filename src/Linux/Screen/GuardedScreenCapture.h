#pragma once
// What every way to picture the screen has in common: what is private is never pictured. Right
// before and right after each shot the guard of the window in front is asked, and which parts of
// the screen show another window that must not be read; those parts are black in the picture.

#include "Linux/FrontWindowGuard.h"
#include "Linux/WithheldRegions.h"
#include "Platform/ScreenCapture.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

namespace mnemora {

/// The picture, whose top left corner is at `place` on the screen, with these parts of the screen
/// in black.
[[nodiscard]] Image blackened(const Image& image, const desktop::Rectangle& place,
                              const desktop::Area& parts);

/// What is asked around each picture.
struct CaptureChecks {
    std::shared_ptr<FrontWindowGuard> guard;
    std::shared_ptr<WithheldRegions> regions;
    /// Whether a picture taken now would be recognised; while it wouldn't, there is no display.
    std::function<bool()> hasRoom;
    /// Grows whenever other windows come to the screen, as of the last answer of guard and
    /// regions; without one nothing is known of such changes.
    std::function<std::uint64_t()> windowChanges = {};
    /// When that last grew; without one nothing is known of it either.
    std::function<std::chrono::steady_clock::time_point()> windowsChangedAt = {};
};

/// Any thread; one picture at a time. The picture is taken while the displays are listed, so that
/// what becomes private meanwhile is no failure but leaves no display.
class GuardedScreenCapture : public ScreenCapture {
  public:
    /// Pictures the first display.
    Outcome<std::vector<Display>> displays() final;
    /// The picture that `displays` took, once.
    Outcome<Image> image(const Display& display, int width, int height) final;

  protected:
    /// What an adapter gives: all displays, and the first one's place on the screen and picture.
    struct Shot {
        std::vector<Display> displays;
        desktop::Rectangle place;
        Image image;
    };

    explicit GuardedScreenCapture(CaptureChecks checks) : checks_(std::move(checks)) {}

    /// As CaptureChecks knows it; else the clock's beginning.
    [[nodiscard]] std::chrono::steady_clock::time_point windowsChangedAt() const {
        return checks_.windowsChangedAt ? checks_.windowsChangedAt()
                                        : std::chrono::steady_clock::time_point();
    }

  private:
    struct Picture {
        Display display;
        Image image;
    };

    /// Takes the picture; one thread at a time isn't promised.
    virtual Outcome<Shot> shot() = 0;
    [[nodiscard]] std::uint64_t windowChanges() const;
    void keep(std::optional<Picture> picture);

    const CaptureChecks checks_;
    std::mutex mutex_;
    std::optional<Picture> picture_; // guarded by mutex_
};

} // namespace mnemora
