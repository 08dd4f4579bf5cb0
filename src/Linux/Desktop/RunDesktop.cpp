#include "Linux/Desktop/RunDesktop.h"

#include "Linux/Desktop/BrandImages.h"
#include "Linux/Desktop/Composition.h"
#include "Linux/Desktop/SessionBus.h"
#include "Linux/Desktop/SingleInstance.h"
#include "Linux/Desktop/TerminationSignals.h"
#include "Linux/Desktop/WindowPlatform.h"
#include "Linux/Wayland/Connection.h"
#include "Log.h"
#include "Meetings/MeetingsWindow.h"
#include "Onboarding/OnboardingWindow.h"
#include "Platform/DesktopServices.h"
#include "Shell/AppDelegate.h"
#include "Shell/AppRelauncher.h"

#include <QApplication>
#include <QDBusConnection>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace mnemora::desktop {
namespace {

using namespace std::chrono_literals;

constexpr auto patienceAtQuit = 500ms;
// As long as a program that is just quitting or starting itself anew may need.
constexpr auto patienceWithFormer = 3s;
// A session's first seconds may leave its bus little time; without one there is no status icon.
constexpr auto patienceWithBus = 2s;

// As long as a session may need to start its compositor anew.
constexpr auto patienceWithCompositor = 15s;

bool isLooping = false; // main thread

// A Wayland session may outlive its compositor (KWin comes back after a crash), but the X server
// inside goes with it, and the toolkit with that: what goes on is a new process.
void startAnewWithCompositor() {
    for (const int number : {SIGTERM, SIGINT, SIGHUP})
        std::signal(number, SIG_DFL); // a session that ends says so
    const auto& application = desktopServices().application;
    const auto bound = std::chrono::steady_clock::now() + patienceWithCompositor;
    while (application && std::chrono::steady_clock::now() < bound) {
        if (wayland::Connection::open()) {
            logInfo("starting anew with the compositor");
            (void)application->startDetached(
                "/bin/sh", {"-c", AppRelauncher::command(application->bundlePath())});
            return;
        }
        std::this_thread::sleep_for(250ms);
    }
}

// The toolkit calls exit() when the X server goes away, as it does at a logout. Threads of ours
// still run then, so nothing that they use may be taken down; the database survives that.
void endWithDisplay() {
    if (!isLooping)
        return;
    if (wayland::isWaylandSession())
        startAnewWithCompositor();
    std::_Exit(0);
}

/// The toolkit, with the session bus where that answers; `count` outlives it.
std::unique_ptr<QApplication> makeApplication(int& count, char** arguments) {
    std::optional<WithoutSessionBus> silence;
    if (!sessionBusAnswers(patienceWithBus)) {
        logError("the session bus doesn't answer: until the next start no status icon there");
        silence.emplace();
    }
    auto application = std::make_unique<QApplication>(count, arguments);
    // The toolkit keeps to what it finds now; everything else may still find the bus.
    (void)QDBusConnection::sessionBus();
    QApplication::setApplicationName(QStringLiteral("Mnemora"));
    QApplication::setDesktopFileName(QStringLiteral("app.mnemora.Mnemora"));
    QApplication::setQuitOnLastWindowClosed(false);
    QApplication::setWindowIcon(applicationIcon());
    return application;
}

int runLoop(MnemoraStore& store, const std::shared_ptr<QtMainLoop>& mainLoop,
            AppDelegate*& running) {
    OnboardingWindow onboarding;
    AppDelegate delegate(
        store, {.showMeetings = [](MnemoraStore& from) { MeetingsWindow::shared().show(from); },
                .showOnboarding = [&] { onboarding.show(); }});
    running = &delegate;
    mainLoop->post([&] { delegate.applicationDidFinishLaunching(); });
    isLooping = std::atexit(endWithDisplay) == 0;
    const int status = QApplication::exec();
    isLooping = false;
    running = nullptr;
    return status;
}

int run(MnemoraStore& store, int argc, char** argv) {
    // Before the toolkit: its own platform plug-in ends the process when there is no display.
    std::string reason;
    auto platform = windowPlatform(reason);
    if (!platform) {
        logError("no display: " + reason);
        return 0;
    }
    std::signal(SIGPIPE, SIG_IGN); // a peer that goes away shows as a failed write
    // By argument: the environment would go on to every program that is started from here.
    std::string option = "-platform";
    std::vector<char*> arguments(argv, argv + argc);
    arguments.insert(arguments.end(), {option.data(), platform->data(), nullptr});
    int count = argc + 2;
    const auto application = makeApplication(count, arguments.data());
    explainPlatform(QGuiApplication::platformName().toStdString());
    AppDelegate* delegate = nullptr;
    SingleInstance instance([&] {
        if (delegate != nullptr)
            delegate->showMenu();
    });
    if (!instance.acquire(patienceWithFormer))
        return 0;
    const auto quit = [&instance] {
        instance.release(); // a new one may begin while this one still ends
        QCoreApplication::quit();
    };
    const TerminationSignals termination(quit);
    const auto mainLoop = std::make_shared<QtMainLoop>();
    GLibThread listener("desktop-state");
    if (!installServices(mainLoop, listener, quit, reason)) {
        logError("no display: " + reason);
        return 0;
    }
    const int status = runLoop(store, mainLoop, delegate);
    instance.release(); // the toolkit may have ended by itself
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
