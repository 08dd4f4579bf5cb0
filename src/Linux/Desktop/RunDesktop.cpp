#include "Linux/Desktop/RunDesktop.h"

#include "Linux/Accessibility/AccessibleWindows.h"
#include "Linux/Desktop/ApplicationCatalogue.h"
#include "Linux/Desktop/FocusedWindowTitles.h"
#include "Linux/Desktop/FrontContentGuard.h"
#include "Linux/Desktop/GLibThread.h"
#include "Linux/Desktop/QtMainLoop.h"
#include "Linux/Desktop/SessionState.h"
#include "Linux/Desktop/TerminationSignals.h"
#include "Linux/X11/X11Workspace.h"
#include "Log.h"
#include "Platform/DesktopServices.h"
#include "Shell/AppDelegate.h"

#include <QCoreApplication>

#include <chrono>
#include <csignal>
#include <memory>
#include <string>

namespace mnemora::desktop {
namespace {

using namespace std::chrono_literals;

constexpr auto patienceAtQuit = 500ms;
// The accessibility bus may have to be started first.
constexpr auto patienceAtStart = 1500ms;

/// Makes the services of this session and installs them; false, with the cause, without a display.
bool installServices(const std::shared_ptr<QtMainLoop>& mainLoop, GLibThread& listener,
                     std::string& reason) {
    const auto windows = std::make_shared<atspi::AccessibleWindows>();
    const auto entries = std::make_shared<DesktopEntries>(listener);
    const auto catalogue = std::make_shared<const ApplicationCatalogue>(entries);
    const auto session = std::make_shared<const SessionState>(listener);
    const auto workspace = x11::X11Workspace::create(mainLoop, catalogue, session, &reason);
    if (!workspace)
        return false;
    DesktopServices services;
    services.mainLoop = mainLoop;
    services.workspace = workspace;
    services.accessibility = std::make_shared<FocusedWindowTitles>(
        windows, catalogue, [workspace] { return workspace->lastFrontWindow(); });
    installDesktopServices(std::move(services));
    // The first thing the sampler says is whether titles can be read.
    (void)windows->waitUntilKnown(patienceAtStart);
    return true;
}

int run(MnemoraStore& store, int argc, char** argv) {
    // Before the toolkit: its own platform plug-in ends the process when there is no display.
    std::string reason;
    if (!x11::Connection::open(&reason)) {
        logError("no display: " + reason);
        return 0;
    }
    std::signal(SIGPIPE, SIG_IGN); // a peer that goes away shows as a failed write
    QCoreApplication application(argc, argv);
    const TerminationSignals termination([] { QCoreApplication::quit(); });
    const auto mainLoop = std::make_shared<QtMainLoop>();
    GLibThread listener("desktop-state");
    if (!installServices(mainLoop, listener, reason)) {
        logError("no display: " + reason);
        return 0;
    }
    auto delegate = std::make_unique<AppDelegate>(store);
    mainLoop->post([&] { delegate->applicationDidFinishLaunching(); });
    const int status = QCoreApplication::exec();
    delegate.reset();
    mainLoop->finish(patienceAtQuit);
    installDesktopServices({});
    return status;
}

} // namespace
} // namespace mnemora::desktop

int runDesktop(mnemora::MnemoraStore& store, int argc, char** argv) {
    return mnemora::desktop::run(store, argc, argv);
}
