#include "Onboarding/OnboardingView.h"

#include "Capture/BrowserInspector.h"
#include "Capture/ScreenTextCapturer.h"
#include "Capture/WindowInspector.h"
#include "Platform/DesktopServices.h"

#include <utility>

namespace mnemora {
namespace {

bool readsTitles() {
    const auto& accessibility = desktopServices().accessibility;
    return accessibility && accessibility->isProcessTrusted();
}

bool readsScreen() {
    const auto& screen = desktopServices().screenCapture;
    return screen && screen->isPermitted();
}

bool assign(bool& state, bool value) {
    return std::exchange(state, value) != value;
}

} // namespace

OnboardingView::OnboardingView(std::function<void()> onClose)
    : onClose_(std::move(onClose)), ax_(readsTitles()), screen_(readsScreen()),
      browser_(BrowserInspector::browserAccessGranted()) {}

bool OnboardingView::recheck() {
    const bool ax = assign(ax_, readsTitles());
    const bool screen = assign(screen_, readsScreen());
    const bool browser = assign(browser_, BrowserInspector::browserAccessGranted());
    return ax || screen || browser;
}

std::vector<OnboardingView::Row> OnboardingView::rows() const {
    return {
        row("On-screen content",
            "Reads on-screen text so the mnemora has real content (Screen Recording).",
            "Granted — remembers what's on screen, on device.", screen_,
            ScreenTextCapturer::openSettings),
        row("Window & app context", "Reads the active window title for context (Accessibility).",
            "Granted — knows which app & window you're in.", ax_, WindowInspector::openSettings),
        row("Browser pages (optional)",
            "Reads the page you're on so it's searchable later (Automation).",
            "Granted — remembers the pages you work with.", browser_,
            BrowserInspector::requestBrowserAccess),
    };
}

OnboardingView::Row OnboardingView::row(std::string title, std::string detail, std::string granted,
                                        bool on, std::function<void()> grant) {
    return {.title = std::move(title),
            .detail = on ? std::move(granted) : std::move(detail),
            .isGranted = on,
            .grant = std::move(grant)};
}

std::string OnboardingView::primaryLabel() const {
    return ax_ && screen_ ? "Start remembering" : "Continue";
}

void OnboardingView::close() const {
    if (onClose_)
        onClose_();
}

} // namespace mnemora
