#include "Meetings/MeetingCoordinator.h"

#include "Log.h"
#include "Platform/CoreServices.h"
#include "Platform/DesktopServices.h"

#include <utility>

namespace mnemora {

MeetingCoordinator::MeetingCoordinator(MnemoraStore& store)
    : recorder_(std::make_shared<MeetingRecorder>(store)) {}

const std::set<std::string>& MeetingCoordinator::callApps() {
    static const std::set<std::string> identifiers = {
        "us.zoom.xos",        "com.microsoft.teams2",       "com.microsoft.teams",
        "com.apple.FaceTime", "com.cisco.webexmeetingsapp", "com.webex.meetingmanager",
        "com.hnc.Discord",    "com.tinyspeck.slackmacgap",  "com.readdle.smartemail-Mac"};
    return identifiers;
}

void MeetingCoordinator::start() {
    const auto& workspace = desktopServices().workspace;
    if (!workspace)
        return;
    observer_ = workspace->observeActivation([weak = weak_from_this()](const auto& application) {
        if (const auto self = weak.lock())
            self->frontmostChanged(application);
    });
}

void MeetingCoordinator::frontmostChanged(const std::optional<RunningApplication>& application) {
    if (recorder_->isRecording() || consentPanel_)
        return;
    if (!application || !application->bundleIdentifier ||
        !callApps().contains(*application->bundleIdentifier))
        return;
    const Clock& clock = *coreServices().clock;
    const auto today = clock.format(clock.now(), "yyyy-MM-dd");
    auto& asked = askedToday_[*application->bundleIdentifier];
    if (asked == today)
        return;
    asked = today; // whatever the answer, this was today's offer
    showConsent();
}

void MeetingCoordinator::showConsent() {
    const auto& panels = desktopServices().panels;
    if (!panels)
        return;
    const auto weakly = [this](void (MeetingCoordinator::*action)()) {
        return [weak = weak_from_this(), action] {
            if (const auto self = weak.lock())
                (self.get()->*action)();
        };
    };
    Card card;
    card.message = "You're on a call. Record it on-device?\nAudio never leaves your Mac.";
    card.buttons = {{.title = "Not now",
                     .isDefault = false,
                     .pressed = weakly(&MeetingCoordinator::consentDismiss)},
                    {.title = "Record",
                     .isDefault = true,
                     .pressed = weakly(&MeetingCoordinator::consentRecord)}};
    card.margins = {.top = 14, .left = 16, .bottom = 14, .right = 16};
    consentPanel_ = panels->show(std::move(card));
}

void MeetingCoordinator::consentDismiss() {
    consentPanel_.reset();
}

void MeetingCoordinator::consentRecord() {
    consentDismiss();
    beginRecording();
}

void MeetingCoordinator::beginRecording() {
    const auto& mainLoop = desktopServices().mainLoop;
    MeetingRecorder::requestPermissions([self = shared_from_this(), mainLoop](bool granted) {
        mainLoop->post([self, granted] {
            if (granted)
                self->recorder_->start();
            else
                logError("meeting recording: mic/speech permission denied");
        });
    });
}

} // namespace mnemora
