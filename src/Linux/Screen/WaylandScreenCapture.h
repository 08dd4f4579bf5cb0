#pragma once
// Pictures of the screen in a Wayland session: through the desktop's screen cast portal where it
// has one, else by the compositor's own protocol, else not at all.

#include "Linux/Screen/GuardedScreenCapture.h"
#include "Linux/Screen/ScreenCastPortal.h"
#include "Linux/Screen/ScreenConsent.h"
#include "Linux/Screen/Screencopy.h"

#include <chrono>
#include <mutex>

namespace mnemora::wayland {

class WaylandScreenCapture final : public GuardedScreenCapture, public ScreenConsent {
  public:
    /// `thread` outlives it.
    WaylandScreenCapture(CaptureChecks checks, desktop::GLibThread& thread,
                         portal::ScreenCastPortal::Options options);

    /// Waits until the desktop has said whether there is a portal, at most so long.
    void waitUntilKnown(std::chrono::milliseconds patience);

    /// True while a cast runs or a kept consent promises one, and where the compositor doesn't
    /// ask. Answers at once.
    bool isPermitted() override;

    Facts facts() override;
    void ask() override;
    void withdraw() override;

  private:
    Way way();
    Outcome<Shot> shot() override;
    Outcome<Image> castPicture();

    Screencopy screencopy_;
    portal::ScreenCastPortal portal_;
    std::mutex mutex_;
    Way way_ = Way::unknown; // guarded by mutex_
    int missed_ = 0;         // pictures that a running cast didn't give in a row; as way_
};

} // namespace mnemora::wayland
