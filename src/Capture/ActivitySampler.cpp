#include "Capture/ActivitySampler.h"

#include "Capture/BrowserInspector.h"
#include "Capture/Privacy.h"
#include "Capture/ScreenTextCapturer.h"
#include "Capture/WindowInspector.h"
#include "Log.h"
#include "Platform/CoreServices.h"
#include "Platform/DesktopServices.h"
#include "Store/MnemoraStore.h"

namespace mnemora {
namespace {

/// A window left on screen is stored about once in this many seconds.
constexpr double dedupWindow = 90;
constexpr long long maxPageCharacters = 6000;

/// What a tick saw, carried to its background job.
struct Sample {
    std::string app;
    std::string bundle;
    std::optional<std::string> title;
    bool redacted;
};

MnemoraEvent observe(const Sample& sample) {
    MnemoraEvent event{.ts = coreServices().clock->now(),
                       .source = "screen",
                       .app = sample.app,
                       .bundle = sample.bundle,
                       .kind = "window",
                       .person = std::nullopt,
                       .title = sample.title,
                       .url = std::nullopt,
                       .body = std::nullopt};
    if (BrowserInspector::browsers().contains(sample.bundle)) {
        event.source = "browser";
        event.kind = "page";
        event.url = BrowserInspector::currentTabURL(sample.bundle);
        if (!sample.redacted)
            event.body = BrowserInspector::currentTabText(sample.bundle, maxPageCharacters);
    } else if (!sample.redacted) {
        event.body = ScreenTextCapturer::captureText();
    }
    return event;
}

} // namespace

ActivitySampler::ActivitySampler(MnemoraStore& store, std::chrono::duration<double> interval)
    : store_(store), interval_(interval) {}

void ActivitySampler::start() {
    warnMissingPermissions();
    fire();
    timer_ = desktopServices().mainLoop->every(
        std::chrono::duration_cast<std::chrono::milliseconds>(interval_),
        [weak = weak_from_this()] {
            if (const auto self = weak.lock())
                self->fire();
        });
}

void ActivitySampler::warnMissingPermissions() {
    const DesktopServices& services = desktopServices();
    if (!services.accessibility || !services.accessibility->isProcessTrusted())
        logError("Accessibility not granted — titles will be empty.");
    if (!services.screenCapture || !services.screenCapture->isPermitted())
        logError("Screen Recording not granted — OCR content disabled.");
}

void ActivitySampler::fire() {
    const DesktopServices& services = desktopServices();
    const auto front =
        services.workspace ? services.workspace->frontmostApplication() : std::nullopt;
    if (!front)
        return;
    Sample sample{.app = front->localizedName.value_or("Unknown"),
                  .bundle = front->bundleIdentifier.value_or(""),
                  .title = WindowInspector::focusedWindowTitle(*front),
                  .redacted = false};
    sample.redacted = Privacy::shouldRedact(sample.bundle, sample.title);
    services.mainLoop->background([&store = store_, sample = std::move(sample)] {
        store.insert(observe(sample), dedupWindow);
    });
}

} // namespace mnemora
