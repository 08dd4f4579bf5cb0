#include "Linux/Screen/WaylandScreenCapture.h"

#include "Linux/Screen/FrameLayout.h"
#include "Log.h"

#include <utility>

namespace mnemora::wayland {
namespace {

using namespace std::chrono_literals;
using Presence = portal::ScreenCastPortal::Presence;

// Together less than the time between two looks.
constexpr auto startPatience = 2s;
constexpr auto picturePatience = 2s;
/// A cast that gives no picture so many times in a row is started again.
constexpr int maxMissed = 3;

void tell(ScreenConsent::Way way) {
    switch (way) {
    case ScreenConsent::Way::portal:
        return logInfo("the screen is read through the desktop's screen cast portal");
    case ScreenConsent::Way::compositor:
        return logInfo("the screen is read by the compositor's wlr-screencopy");
    case ScreenConsent::Way::none:
        return logError("the screen can't be read: this session has neither a screen cast portal "
                        "nor wlr-screencopy");
    case ScreenConsent::Way::unknown:
        return;
    }
}

/// Where screens can be copied by wlroots' protocol, the portal does just that.
portal::ScreenCastPortal::Options forCompositor(portal::ScreenCastPortal::Options options,
                                                const Screencopy& screencopy) {
    options.sendsChangesOnly = screencopy.isOffered();
    return options;
}

} // namespace

WaylandScreenCapture::WaylandScreenCapture(CaptureChecks checks, desktop::GLibThread& thread,
                                           portal::ScreenCastPortal::Options options)
    : GuardedScreenCapture(std::move(checks)),
      portal_(thread, forCompositor(std::move(options), screencopy_)) {}

void WaylandScreenCapture::waitUntilKnown(std::chrono::milliseconds patience) {
    (void)portal_.waitUntilKnown(patience);
    (void)way();
}

/// What was chosen stays, so that a portal which comes later takes nothing away that works.
ScreenConsent::Way WaylandScreenCapture::way() {
    const std::lock_guard lock(mutex_);
    if (way_ == Way::portal || way_ == Way::compositor)
        return way_;
    const auto presence = portal_.presence();
    const auto found = presence == Presence::unknown   ? Way::unknown
                       : presence == Presence::present ? Way::portal
                       : screencopy_.isOffered()       ? Way::compositor
                                                       : Way::none;
    if (std::exchange(way_, found) != found)
        tell(found);
    return way_;
}

bool WaylandScreenCapture::isPermitted() {
    switch (way()) {
    case Way::compositor:
        return true;
    case Way::none:
        return false;
    case Way::portal:
    case Way::unknown:
        break;
    }
    return portal_.isPermitted();
}

ScreenConsent::Facts WaylandScreenCapture::facts() {
    const auto status = portal_.status();
    return {.way = way(),
            .isAsking = status.isAsking,
            .wasRefused = status.wasRefused,
            .lastFailed = status.lastFailed};
}

void WaylandScreenCapture::ask() {
    portal_.ask();
}

void WaylandScreenCapture::withdraw() {
    portal_.withdraw();
}

Outcome<GuardedScreenCapture::Shot> WaylandScreenCapture::shot() {
    if (!isPermitted())
        return Shot{};
    auto image = way() == Way::compositor ? screencopy_.picture() : castPicture();
    if (!image)
        return Failure{image.description()};
    if (image->width == 0)
        return Shot{};
    // So a compositor answers that withholds the screen from us; nothing on it could be read
    // anyway.
    if (isBlack(*image))
        return Failure{"the picture is black"};
    constexpr std::uint32_t onlyDisplay = 1;
    return Shot{.displays = {{onlyDisplay, image->width, image->height}},
                .place = {0, 0, image->width, image->height},
                .image = *image};
}

/// Without pixels while no cast runs, for which the portal says in the log why, and where the cast
/// has shown nothing since the windows changed.
Outcome<Image> WaylandScreenCapture::castPicture() {
    const auto stream = portal_.stream(startPatience);
    if (!stream)
        return Image{};
    auto image = stream->picture(picturePatience, windowsChangedAt());
    // wlroots' portal tells of changes only, the first picture included: on a screen that stands
    // still since before the cast began it has nothing to tell. What is allowed is one monitor, and
    // nobody says which.
    const bool hasNothing = !image || image->width == 0;
    if (hasNothing && stream->isAlive() && screencopy_.isOffered())
        if (auto copied = screencopy_.onlyMonitorsPicture(); copied && copied->width > 0)
            image = std::move(copied);
    const std::lock_guard lock(mutex_);
    missed_ = image && image->width > 0 ? 0 : missed_ + 1;
    if (missed_ >= maxMissed || !stream->isAlive()) {
        missed_ = 0;
        portal_.restart();
    }
    return image;
}

} // namespace mnemora::wayland
