#include "Shell/AppDelegate.h"

#include "Capture/ActivitySampler.h"
#include "Log.h"
#include "Meetings/MeetingCoordinator.h"
#include "Nudges/NudgeController.h"
#include "Platform/DesktopServices.h"
#include "Shell/StatusMenu.h"
#include "Store/MnemoraStore.h"

#include <chrono>
#include <utility>

namespace mnemora {
namespace {

constexpr std::chrono::duration<double> samplingInterval(6.0);
constexpr std::int64_t recentLimit = 5;

bool canCapture() {
    const auto& services = desktopServices();
    return services.accessibility && services.accessibility->isProcessTrusted() &&
           services.screenCapture && services.screenCapture->isPermitted();
}

} // namespace

AppDelegate::AppDelegate(MnemoraStore& store, ShellWindows windows)
    : store_(store), windows_(std::move(windows)) {}

AppDelegate::~AppDelegate() {
    if (meetings_) // the recorder may outlive us in a background job of its own
        meetings_->recorder().observeRecording({});
}

void AppDelegate::applicationDidFinishLaunching() {
    setupStatusItem();
    sampler_ = std::make_shared<ActivitySampler>(store_, samplingInterval);
    sampler_->start();
    nudges_ = std::make_shared<NudgeController>(store_);
    nudges_->start();
    meetings_ = std::make_shared<MeetingCoordinator>(store_);
    meetings_->recorder().observeRecording([this](bool recording) {
        if (statusItem_)
            statusItem_->setRecording(recording);
    });
    meetings_->start();
    logInfo("capture started → " + MnemoraStore::dbPath());
    if (!canCapture())
        openOnboarding();
}

void AppDelegate::setupStatusItem() {
    if (const auto& area = desktopServices().statusArea)
        statusItem_ = area->add({.iconSize = 18, .toolTip = "Mnemora", .menuNeedsUpdate = [this] {
                                     return menuNeedsUpdate();
                                 }});
}

void AppDelegate::showMenu() {
    if (statusItem_)
        statusItem_->showMenu();
}

Menu AppDelegate::menuNeedsUpdate() {
    return statusMenu({.canCapture = canCapture(),
                       .memoriesToday = memoriesToday(store_),
                       .recent = recentMemories(store_, recentLimit),
                       .isRecording = meetings_ && meetings_->recorder().isRecording()},
                      {.toggleRecording = [this] { toggleRecording(); },
                       .openMeetings = [this] { openMeetings(); },
                       .openOnboarding = [this] { openOnboarding(); },
                       .quit = [] { quit(); }});
}

void AppDelegate::toggleRecording() {
    if (!meetings_)
        return;
    if (meetings_->recorder().isRecording())
        meetings_->recorder().stop();
    else
        meetings_->beginRecording();
}

void AppDelegate::openMeetings() {
    if (windows_.showMeetings)
        windows_.showMeetings(store_);
}

void AppDelegate::openOnboarding() {
    if (windows_.showOnboarding)
        windows_.showOnboarding();
}

void AppDelegate::quit() {
    if (const auto& application = desktopServices().application)
        application->terminate();
}

} // namespace mnemora
