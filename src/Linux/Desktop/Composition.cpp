#include "Linux/Desktop/Composition.h"

#include "Capture/Privacy.h"
#include "Linux/Accessibility/AccessibleWindows.h"
#include "Linux/Browsers/AccessiblePages.h"
#include "Linux/Browsers/BrowserScriptHost.h"
#include "Linux/Browsers/PageSocket.h"
#include "Linux/Desktop/ApplicationCatalogue.h"
#include "Linux/Desktop/BrandImages.h"
#include "Linux/Desktop/CardPanels.h"
#include "Linux/Desktop/DesktopApplication.h"
#include "Linux/Desktop/DesktopStatusArea.h"
#include "Linux/Desktop/DesktopWorkspace.h"
#include "Linux/Desktop/FocusedWindowTitles.h"
#include "Linux/Desktop/FrontContentGuard.h"
#include "Linux/Desktop/PageAddress.h"
#include "Linux/Desktop/SessionState.h"
#include "Linux/Desktop/SettingsFile.h"
#include "Linux/Desktop/SettingsPages.h"
#include "Linux/Desktop/WithheldWindows.h"
#include "Linux/Engines/EngineSpeechService.h"
#include "Linux/Engines/EngineTextRecognizer.h"
#include "Linux/Screen/WaylandScreenCapture.h"
#include "Linux/Screen/X11ScreenCapture.h"
#include "Linux/Sound/SoundModule.h"
#include "Linux/Wayland/Connection.h"
#include "Linux/Wayland/SessionWindows.h"
#include "Linux/X11/FrontWindowWatcher.h"
#include "Platform/DesktopServices.h"
#include "Support/Installation.h"
#include "Support/UserFolders.h"

#include <QGuiApplication>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

namespace mnemora::desktop {
namespace {

using namespace std::chrono_literals;

// The accessibility bus may have to be started first.
constexpr auto patienceAtStart = 1500ms;
// As long as the setup window isn't opened for nothing because a portal is slow to say that it
// isn't there; it has been asked before the bus above.
constexpr auto patienceWithPortal = 500ms;
// Where the desktop's consent is kept from one run to the next.
constexpr const char* consentKey = "screen.restoreToken";

std::filesystem::path hostProgram() {
    std::error_code error;
    const auto program = installation::helpers() / "mnemora-browser-host";
    const auto resolved = std::filesystem::canonical(program, error);
    return error ? program : resolved;
}

std::shared_ptr<ScriptHost> makeScriptHost(const std::shared_ptr<DesktopWorkspace>& workspace,
                                           const std::shared_ptr<FrontWindowGuard>& guard) {
    const auto frontmost = [workspace]() -> std::optional<std::string> {
        const auto front = workspace->lastFrontmostApplication();
        return front ? front->bundleIdentifier : std::nullopt;
    };
    const auto fallback =
        std::make_shared<browsers::AccessiblePages>(browsers::AccessiblePages::Options{
            .frontmostApplication = frontmost,
            .guard = guard,
            .windowChanges = [workspace] { return workspace->windowChanges(); },
            .conceals = isConcealedPage});
    const std::shared_ptr<ScriptHost> host = browsers::BrowserScriptHost::create(
        {.socket = browsers::pageSocketPath(),
         .hostProgram = hostProgram(),
         .frontmostApplication = frontmost,
         .withholds =
             [](const std::string& bundleIdentifier, const std::string& title) {
                 return Privacy::shouldRedact(bundleIdentifier, title);
             },
         .conceals = isConcealedPage,
         .fallback = fallback});
    return host ? host : fallback;
}

/// What this session offers for telling its windows.
std::unique_ptr<WindowSource>
windowSource(const std::shared_ptr<atspi::AccessibleWindows>& accessible,
             const std::shared_ptr<const ApplicationCatalogue>& catalogue, GLibThread& listener,
             std::function<void()> changed, std::string& reason) {
    if (!wayland::isWaylandSession())
        return x11::FrontWindowWatcher::start(std::move(changed), &reason);
    return std::make_unique<wayland::SessionWindows>(
        wayland::SessionWindows::Options{.accessible = accessible,
                                         .catalogue = catalogue,
                                         .listener = &listener,
                                         .changed = std::move(changed)});
}

/// The screen of a Wayland session; null in any other.
std::shared_ptr<wayland::WaylandScreenCapture>
sharedScreen(const CaptureChecks& checks, GLibThread& listener,
             const std::shared_ptr<QtMainLoop>& mainLoop,
             const std::shared_ptr<UserDefaults>& defaults,
             const std::shared_ptr<const SessionState>& session) {
    if (!wayland::isWaylandSession())
        return nullptr;
    const auto keep = [mainLoop, defaults](const std::string& token) {
        mainLoop->post([defaults, token] { defaults->set(consentKey, token); });
    };
    return std::make_shared<wayland::WaylandScreenCapture>(
        checks, listener,
        portal::ScreenCastPortal::Options{.token = defaults->text(consentKey).value_or(""),
                                          .keepToken = keep,
                                          .isInFront = [session] { return session->isInFront(); }});
}

} // namespace

bool installServices(const std::shared_ptr<QtMainLoop>& mainLoop, GLibThread& listener,
                     std::function<void()> quit, std::string& reason) {
    const auto windows = std::make_shared<atspi::AccessibleWindows>();
    const auto entries = std::make_shared<DesktopEntries>(listener);
    const auto catalogue = std::make_shared<const ApplicationCatalogue>(entries);
    const auto session = std::make_shared<const SessionState>(listener);
    const auto workspace =
        DesktopWorkspace::create(mainLoop, catalogue, session, [&](auto changed) {
            return windowSource(windows, catalogue, listener, std::move(changed), reason);
        });
    if (!workspace)
        return false;
    const auto guard = std::make_shared<FrontContentGuard>(
        [workspace](std::chrono::milliseconds patience) {
            return workspace->freshFrontWindow(patience);
        },
        windows, catalogue);
    DesktopServices services;
    services.mainLoop = mainLoop;
    services.workspace = workspace;
    services.accessibility = std::make_shared<FocusedWindowTitles>(
        windows, catalogue, [workspace] { return workspace->lastFrontWindow(); });
    services.scriptHost = makeScriptHost(workspace, guard);
    const auto recognizer =
        std::make_shared<EngineTextRecognizer>(EngineSettings::ofInstallation());
    services.textRecognizer = recognizer;
    services.defaults = std::make_shared<SettingsFile>(userFolders::settings() / "defaults.json");
    CaptureChecks checks{.guard = guard,
                         .regions = std::make_shared<WithheldWindows>(
                             [workspace](std::chrono::milliseconds patience) {
                                 return workspace->settledStack(patience);
                             },
                             windows, catalogue),
                         .hasRoom = [recognizer] { return recognizer->hasRoom(); },
                         .windowChanges = [workspace] { return workspace->windowChanges(); },
                         .windowsChangedAt = [workspace] { return workspace->windowsChangedAt(); }};
    const auto shared = sharedScreen(checks, listener, mainLoop, services.defaults, session);
    services.screenCapture = shared ? std::shared_ptr<ScreenCapture>(shared)
                                    : std::make_shared<x11::X11ScreenCapture>(std::move(checks));
    workspace->setSettingsOpener(
        [pages = std::make_shared<SettingsPages>(listener, installation::prefix(), shared)](
            const std::string& address) { return pages->open(address); });
    auto sound = loadSoundDevices(mainLoop);
    services.audioInput = std::move(sound.input);
    services.systemAudio = std::move(sound.output);
    services.speech =
        std::make_shared<EngineSpeechService>(SpeechEngineSettings::ofInstallation(), mainLoop);
    services.application = std::make_shared<DesktopApplication>(std::move(quit));
    services.statusArea = std::make_shared<DesktopStatusArea>();
    // Elsewhere a card would be a window like any other, with the focus.
    if (QGuiApplication::platformName() == QLatin1String("xcb"))
        services.panels =
            std::make_shared<CardPanels>([](int size, const QColor& tint, double scale) {
                return menuBarImage(size, tint, scale);
            });
    installDesktopServices(std::move(services));
    // The first thing the sampler says is whether titles can be read.
    (void)windows->waitUntilKnown(patienceAtStart);
    if (shared)
        shared->waitUntilKnown(patienceWithPortal);
    return true;
}

} // namespace mnemora::desktop
