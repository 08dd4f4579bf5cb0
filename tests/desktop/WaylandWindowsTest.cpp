#include "desktop/DesktopSession.h"

#include "Linux/Desktop/WithheldWindows.h"
#include "Linux/Wayland/CompositorWatcher.h"
#include "Wayland/FakeCompositor.h"
#include "fakes/CapturedStderr.h"
#include "fakes/TemporaryFolder.h"
#include "fakes/TemporaryHome.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <fstream>
#include <list>
#include <sys/wait.h>
#include <unistd.h>

namespace mnemora::desktop {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

constexpr const char* qtWindow = MNEMORA_QT_WINDOW;

/// A command with additions to its environment.
std::vector<std::string> with(const std::vector<std::string>& variables,
                              const std::vector<std::string>& command) {
    std::vector<std::string> all = {"env"};
    all.insert(all.end(), variables.begin(), variables.end());
    all.insert(all.end(), command.begin(), command.end());
    return all;
}

void tellSway(const std::string& command) {
    Program({"swaymsg", "-q", command}).wait();
}

class WaylandWindows : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_NE(getenv("SWAYSOCK"), nullptr) << "to be run by scripts/wayland-session";
        ASSERT_NE(session_.workspace, nullptr);
        ASSERT_TRUE(session_.runUntil([&] { return session_.titles->isProcessTrusted(); }));
    }

    std::vector<std::string> chromium(const std::string& title, bool isNative,
                                      const std::string& profile, const char* more = nullptr) {
        const fs::path page = folder_ / (title + ".html");
        std::ofstream(page) << "<title>" << title << "</title>";
        std::vector<std::string> command = {"chromium",
                                            "--no-sandbox",
                                            "--no-first-run",
                                            "--disable-gpu",
                                            std::string("--ozone-platform=") +
                                                (isNative ? "wayland" : "x11"),
                                            "--user-data-dir=" + (folder_ / profile).string()};
        if (more != nullptr)
            command.emplace_back(more);
        command.push_back("file://" + page.string());
        return command;
    }

    /// Gives the window the focus, again and again until its title is the one in front: programs
    /// that are just starting take it back.
    bool bringToFront(const std::string& beginning, const std::string& title) {
        auto asked = std::chrono::steady_clock::time_point();
        return session_.runUntil([&] {
            if (session_.frontTitle() == title)
                return true;
            if (std::chrono::steady_clock::now() - asked > 300ms) {
                tellSway("[title=\"^" + beginning + "\"] focus");
                asked = std::chrono::steady_clock::now();
            }
            return false;
        });
    }
    /// Once everything that knows the window has told of it.
    bool mayBeRead() {
        return session_.runUntil([&] { return session_.guard->contentMayBeRead(); });
    }
    /// Over a while.
    bool isNeverRead() {
        for (const auto until = std::chrono::steady_clock::now() + 1s;
             std::chrono::steady_clock::now() < until;)
            if (session_.guard->contentMayBeRead())
                return false;
        return true;
    }

    test::TemporaryFolder folder_;
    DesktopSession session_;
};

TEST_F(WaylandWindows, AreTitledAndKnownForEveryToolkitNativeAndOnTheXServer) {
    struct Case {
        std::vector<std::string> command;
        std::string beginning;
        std::string title;
        std::string name;
        bool hasProcess = true;
    };
    const auto chromiumPage = [&](const std::string& title, bool isNative) {
        return Case{chromium(title, isNative, title), title, title + " - Chromium",
                    "Chromium Web Browser"};
    };
    const std::vector<Case> cases = {
        {{"foot", "-T", "山 notes", "sleep", "infinity"}, "山", "山 notes", "Foot", false},
        {{"xterm", "-T", "Xterm notes"}, "Xterm", "Xterm notes", "XTerm"},
        {with({"GDK_BACKEND=wayland"}, {"zenity", "--info", "--title=Gtk native"}), "Gtk native",
         "Gtk native", "zenity"},
        {with({"GDK_BACKEND=x11"}, {"zenity", "--info", "--title=Gtk on X"}), "Gtk on X",
         "Gtk on X", "Zenity"},
        {{qtWindow, "Qt native", "-platform", "wayland"}, "Qt native", "Qt native", "qt-window"},
        {{qtWindow, "Qt on X", "-platform", "xcb"}, "Qt on X", "Qt on X", "qt-window"},
        chromiumPage("Page native", true),
        chromiumPage("Page on X", false),
    };
    std::vector<std::string> announced;
    const auto observation = session_.workspace->observeActivation(
        [&](const auto& application) { announced.push_back(*application->localizedName); });
    std::list<Program> programs;
    for (const Case& test : cases)
        programs.emplace_back(test.command);
    // Each takes the focus when it appears.
    const wayland::CompositorWatcher list(wayland::CompositorWatcher::Options{});
    const auto areAllThere = [&] {
        const auto windows = list.last().windows;
        return windows && windows->size() == cases.size();
    };
    ASSERT_TRUE(session_.runUntil(areAllThere));
    auto program = programs.begin();
    for (const Case& test : cases) {
        const int process = (program++)->process();
        ASSERT_TRUE(bringToFront(test.beginning, test.title))
            << test.title << " is not in front, but " << session_.frontTitle().value_or("nothing");
        const auto front = session_.workspace->frontmostApplication();
        ASSERT_TRUE(front) << test.title;
        EXPECT_EQ(front->localizedName, test.name) << test.title;
        // The accessibility bus tells a moment after the compositor.
        EXPECT_TRUE(session_.runUntil([&] {
            const auto same = session_.workspace->frontmostApplication();
            return same && same->processIdentifier == (test.hasProcess ? process : 0);
        })) << test.title;
        EXPECT_TRUE(mayBeRead()) << test.title;
    }
    EXPECT_TRUE(session_.runUntil([&] { return announced.size() >= cases.size(); }));
    for (const char* bundle : {"com.google.Chrome", "foot"})
        EXPECT_TRUE(session_.runUntil(
            [&] { return !session_.workspace->runningApplications(bundle).empty(); }));
}

TEST_F(WaylandWindows, OfChromiumThatArePrivateLeaveNoPictureOfTheScreen) {
    WithheldWindows regions(
        [&](auto patience) { return session_.workspace->settledStack(patience); }, session_.windows,
        session_.catalogue);
    const Program terminal({"foot", "-T", "Plain notes", "sleep", "infinity"});
    const Program ordinary(chromium("Open page", true, "profile"));
    ASSERT_TRUE(bringToFront("Open page", "Open page - Chromium"));
    EXPECT_TRUE(mayBeRead());
    EXPECT_TRUE(session_.runUntil([&] { return regions.withheld() == Area{}; }));
    for (const bool isNative : {true, false}) {
        const std::string profile = isNative ? "profile" : "other";
        auto command = chromium("Hidden page", isNative, profile, "--incognito");
        const Program hidden(command);
        ASSERT_TRUE(bringToFront("Hidden page", "Hidden page - Chromium (Incognito)"));
        EXPECT_TRUE(isNeverRead());
        // Beside another window in front nobody knows where it shows.
        ASSERT_TRUE(bringToFront("Plain notes", "Plain notes"));
        EXPECT_TRUE(mayBeRead());
        for (const auto until = std::chrono::steady_clock::now() + 1s;
             std::chrono::steady_clock::now() < until;)
            ASSERT_EQ(regions.withheld(), std::nullopt);
        tellSway("[title=\"^Hidden page\"] kill");
        EXPECT_TRUE(session_.runUntil([&] { return regions.withheld() == Area{}; }));
    }
}

TEST_F(WaylandWindows, OfFirefoxAreReadOnlyWhenOrdinary) {
    const auto firefox = [&](const char* title, const char* more) {
        const fs::path page = folder_ / (std::string(title) + ".html");
        std::ofstream(page) << "<title>" << title << "</title>";
        const fs::path profile = folder_ / title;
        fs::create_directory(profile);
        std::ofstream(profile / "user.js")
            << "user_pref('browser.aboutwelcome.enabled', false);"
               "user_pref('datareporting.policy.dataSubmissionEnabled', false);";
        return with({"MOZ_ENABLE_WAYLAND=1"}, {"firefox-esr", "--no-remote", "--profile",
                                               profile.string(), more, "file://" + page.string()});
    };
    {
        const Program ordinary(firefox("Open fox", "--new-window"));
        ASSERT_TRUE(bringToFront("Open fox", "Open fox — Mozilla Firefox"));
        EXPECT_TRUE(mayBeRead());
    }
    const Program hidden(firefox("Hidden fox", "--private-window"));
    ASSERT_TRUE(bringToFront("Hidden fox", "Hidden fox — Mozilla Firefox Private Browsing"));
    EXPECT_TRUE(isNeverRead());
}

TEST_F(WaylandWindows, CountForNothingWhileNobodyLooksAtThem) {
    const Program terminal({"foot", "-T", "Plain notes", "sleep", "infinity"});
    ASSERT_TRUE(bringToFront("Plain notes", "Plain notes"));
    const auto lock = [](const char* locked) {
        Program({"dbus-send", "--session", "--type=signal", "/org/freedesktop/ScreenSaver",
                 "org.freedesktop.ScreenSaver.ActiveChanged", std::string("boolean:") + locked})
            .wait();
    };
    lock("true");
    EXPECT_TRUE(session_.runUntil([&] { return !session_.workspace->frontmostApplication(); }));
    EXPECT_FALSE(session_.guard->contentMayBeRead());
    lock("false");
    EXPECT_TRUE(bringToFront("Plain notes", "Plain notes"));

    wayland::CompositorWatcher watcher({.idleAfter = 500ms});
    EXPECT_TRUE(session_.runUntil([&] { return watcher.last().isAway; }));
    Program({"wtype", "-k", "Shift_L"}).wait();
    EXPECT_TRUE(session_.runUntil([&] { return !watcher.last().isAway; }));
}

/// The same session, but for a compositor that lists no windows for others, as GNOME's doesn't.
TEST(WaylandWindowsWithoutAList, AreKnownByTheBusAndTheXServerOrNotAtAll) {
    const std::string display = getenv("WAYLAND_DISPLAY");
    const std::string runtime = getenv("XDG_RUNTIME_DIR");
    const wayland::FakeCompositor compositor({.toplevels = false});
    DesktopSession session;
    setenv("WAYLAND_DISPLAY", display.c_str(), 1);
    setenv("XDG_RUNTIME_DIR", runtime.c_str(), 1);
    ASSERT_NE(session.workspace, nullptr);
    ASSERT_TRUE(session.runUntil([&] { return session.titles->isProcessTrusted(); }));
    WithheldWindows regions(
        [&](auto patience) { return session.workspace->settledStack(patience); }, session.windows,
        session.catalogue);
    const auto comesToFront = [&](const char* title) {
        return session.runUntil([&] {
            tellSway("[title=\"^" + std::string(title) + "\"] focus");
            const auto front = session.workspace->frontmostApplication();
            return front && session.frontTitle() == title;
        });
    };
    const Program native(with({"GDK_BACKEND=wayland"}, {"zenity", "--info", "--title=Gtk native"}));
    ASSERT_TRUE(comesToFront("Gtk native"));
    EXPECT_EQ(session.workspace->frontmostApplication()->processIdentifier, native.process());
    EXPECT_TRUE(session.runUntil([&] { return session.guard->contentMayBeRead(); }));
    const test::TemporaryHome folder;
    const auto running = [&](const char* called) {
        fs::copy_file("/bin/sleep", folder.path() / called);
        return Program({(folder.path() / called).string(), "infinity"});
    };
    // A program that nobody hears of may show a private window.
    for (const char* called : {"firefox-esr", "keepassxc"}) {
        EXPECT_TRUE(session.runUntil([&] { return regions.withheld() == Area{}; }));
        const Program silent = running(called);
        EXPECT_TRUE(session.runUntil([&] { return !regions.withheld(); })) << called;
    }
    // These run in most sessions, without a window.
    const std::array<Program, 2> services = {running("gpg-agent"), running("keepassxc-proxy")};
    EXPECT_TRUE(session.runUntil([&] { return regions.withheld() == Area{}; }));
    const Program onServer({"xterm", "-T", "Xterm notes"});
    ASSERT_TRUE(comesToFront("Xterm notes"));
    // Beside a window whose title is private there is no picture.
    const Program hidden(with({"GDK_BACKEND=wayland"}, {"zenity", "--info", "--title=Password"}));
    ASSERT_TRUE(comesToFront("Password"));
    ASSERT_TRUE(comesToFront("Xterm notes"));
    EXPECT_EQ(regions.withheld(), std::nullopt);
    // A program that nobody tells of is no application in front.
    const Program unknown({"foot", "-T", "Plain notes", "sleep", "infinity"});
    EXPECT_TRUE(session.runUntil([&] {
        tellSway("[title=\"^Plain notes\"] focus");
        return !session.workspace->frontmostApplication() && !session.guard->contentMayBeRead();
    }));
}

// Last, since nothing of the session is left afterwards.
using RestartedWaylandWindows = WaylandWindows;

TEST_F(RestartedWaylandWindows, ComeBackWithACompositorThatWasStartedAnew) {
    const Program terminal({"foot", "-T", "Before", "sleep", "infinity"});
    ASSERT_TRUE(bringToFront("Before", "Before"));
    const test::CapturedStderr log;
    const std::string socket = getenv("SWAYSOCK"); // .../sway-ipc.USER.PROCESS.sock
    const auto end = socket.rfind(".sock");
    const auto begin = socket.rfind('.', end - 1) + 1;
    const pid_t former = std::stoi(socket.substr(begin, end - begin));
    kill(former, SIGKILL);
    // It holds the name of the display until it has ended; the session's program is its parent.
    EXPECT_EQ(waitpid(former, nullptr, 0), former);
    EXPECT_TRUE(session_.runUntil([&] { return !session_.workspace->freshFrontWindow(1s); }));
    EXPECT_EQ(session_.workspace->frontmostApplication(), std::nullopt);
    EXPECT_FALSE(session_.guard->contentMayBeRead());
    const Program compositor({"sway", "-c", getenv("SWAY_CONFIG")});
    const auto compositorIsBack = [&] {
        return log.text().find("the compositor is there again") != std::string::npos;
    };
    EXPECT_TRUE(session_.runUntil(compositorIsBack));
    const Program keyboard({"wtype", "-s", "100000"});
    const Program after({"foot", "-T", "After", "sleep", "infinity"});
    EXPECT_TRUE(session_.runUntil([&] { return session_.frontTitle() == "After"; }));
    EXPECT_EQ(log.text(), "[mnemora][error] the compositor has gone: its windows can't be told "
                          "until it is back\n[mnemora] the compositor is there again\n");
}

} // namespace
} // namespace mnemora::desktop
