#include "Linux/Desktop/RunDesktop.h"

#include "Linux/Desktop/Composition.h"
#include "Linux/Desktop/TerminationSignals.h"
#include "Linux/X11/Connection.h"
#include "Log.h"
#include "Platform/DesktopServices.h"
#include "Shell/AppDelegate.h"

#include <QCoreApplication>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <string>

namespace mnemora::desktop {
namespace {

using namespace std::chrono_literals;

constexpr auto patienceAtQuit = 500ms;

int runLoop(MnemoraStore& store, const std::shared_ptr<QtMainLoop>& mainLoop) {
    AppDelegate delegate(store, {});
    mainLoop->post([&] { delegate.applicationDidFinishLaunching(); });
    return QCoreApplication::exec();
}

int run(MnemoraStore& store, int argc, char** argv) {
    // Before the toolkit: its own platform plug-in ends the process when there is no display.
    std::string reason;
    if (!x11::Connection::open(&reason)) {
        logError("no display: " + reason);
        return 0;
    }
    std::signal(SIGPIPE, SIG_IGN); // a peer that goes away shows as a failed write
    const QCoreApplication application(argc, argv);
    const TerminationSignals termination([] { QCoreApplication::quit(); });
    const auto mainLoop = std::make_shared<QtMainLoop>();
    GLibThread listener("desktop-state");
    if (!installServices(mainLoop, listener, reason)) {
        logError("no display: " + reason);
        return 0;
    }
    const int status = runLoop(store, mainLoop);
    // A job that goes on holds the store and the services: everything has to stay where it is
    // until the process is gone. The database survives that at any moment.
    if (!mainLoop->finish(patienceAtQuit))
        std::_Exit(status);
    installDesktopServices({});
    return status;
}

} // namespace
} // namespace mnemora::desktop

int runDesktop(mnemora::MnemoraStore& store, int argc, char** argv) {
    return mnemora::desktop::run(store, argc, argv);
}
