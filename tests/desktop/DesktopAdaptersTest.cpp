#include "desktop/DesktopSession.h"
#include "desktop/XServer.h"

#include "Linux/Desktop/WithheldWindows.h"
#include "Linux/X11/FrontWindowWatcher.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <unistd.h>

namespace mnemora::desktop {
namespace {

using namespace std::chrono_literals;
using Steady = std::chrono::steady_clock;

/// Windows on top of all others that are never shown, as toolkits keep many.
class HiddenWindows {
  public:
    explicit HiddenWindows(xcb_connection_t* connection) : connection_(connection) {
        const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
        for (auto& window : windows_) {
            window = xcb_generate_id(connection);
            xcb_create_window(connection, 0, window, root, 0, 0, 10, 10, 0,
                              XCB_WINDOW_CLASS_INPUT_OUTPUT, 0, 0, nullptr);
        }
        std::free(xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr));
    }
    ~HiddenWindows() {
        for (const auto window : windows_)
            xcb_destroy_window(connection_, window);
        xcb_flush(connection_);
    }
    HiddenWindows(const HiddenWindows&) = delete;
    HiddenWindows& operator=(const HiddenWindows&) = delete;

  private:
    xcb_connection_t* connection_;
    std::array<xcb_window_t, 40> windows_{};
};

/// What the window manager says of its windows, to be written over its head.
class RootLists {
  public:
    explicit RootLists(xcb_connection_t* connection)
        : connection_(connection),
          root_(xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root) {
        for (const char* name : {"_NET_CLIENT_LIST", "_NET_CLIENT_LIST_STACKING",
                                 "_NET_ACTIVE_WINDOW", "_NET_CURRENT_DESKTOP"}) {
            const x11::Reply<xcb_intern_atom_reply_t> atom(xcb_intern_atom_reply(
                connection,
                xcb_intern_atom(connection, 1, static_cast<std::uint16_t>(strlen(name)), name),
                nullptr));
            lists_.emplace_back(xcb_get_property_reply(
                connection,
                xcb_get_property(connection, 0, root_, atom->atom, XCB_ATOM_ANY, 0, 1024),
                nullptr));
            names_.push_back(atom->atom);
        }
    }
    void writeAnew() const { write(0); }
    /// Without the window that came last.
    void writeShortened() const { write(1); }

  private:
    void write(std::uint32_t left) const {
        for (std::size_t i = 0; i < names_.size(); ++i)
            xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, root_, names_[i],
                                lists_[i]->type, 32, lists_[i]->value_len - (i < 2 ? left : 0),
                                xcb_get_property_value(lists_[i].get()));
        std::free(
            xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr));
    }

    xcb_connection_t* connection_;
    xcb_window_t root_;
    std::vector<xcb_atom_t> names_;
    std::vector<x11::Reply<xcb_get_property_reply_t>> lists_;
};

class DesktopAdapters : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_NE(session_.workspace, nullptr) << "to be run by scripts/virtual-session --a11y";
        ASSERT_EQ(xcb_connection_has_error(own_.get()), 0);
    }

    OwnConnection own_{xcb_connect(nullptr, nullptr)};
    DesktopSession session_;
};

TEST_F(DesktopAdapters, ReadTheMarksOfAWindowHoweverOddTheyAre) {
    const std::string huge = "begin " + std::string(100000, 'x') + " end";
    struct Case {
        OwnWindow::Marks marks;
        std::string title;
    };
    const std::vector<Case> cases = {
        {{.title = "Пример — 山"}, "Пример — 山"},
        {{.title = "bad \xC3( \xFF byte"}, "bad \uFFFD( \uFFFD byte"},
        {{.title = std::string("with\0nul", 8)}, "withnul"},
        {{.title = {}, .oldTitle = "caf\xE9"}, "café"},
        {{.title = {}, .oldTitle = "\x1B-L\xBF\xE0", .oldTitleType = "COMPOUND_TEXT"}, "Пр"},
        {{.title = {}, .oldTitle = "\x1B%G山\x1B%@!", .oldTitleType = "COMPOUND_TEXT"}, "山!"},
        {{.title = huge, .windowClass = {}}, shortenedTitle(huge)},
    };
    for (const Case& test : cases) {
        const OwnWindow window(own_.get(), test.marks);
        ASSERT_TRUE(session_.waitForFront(window)) << test.title.substr(0, 40);
        const auto front = session_.workspace->frontmostApplication();
        ASSERT_TRUE(front);
        EXPECT_EQ(front->processIdentifier, getpid());
        EXPECT_EQ(session_.frontTitle(), test.title);
    }
}

TEST_F(DesktopAdapters, SurviveWindowsThatDieWhileTheyAreRead) {
    std::atomic<bool> isOver = false;
    std::thread churn([&] {
        const OwnConnection connection(xcb_connect(nullptr, nullptr));
        while (!isOver) {
            const OwnWindow window(connection.get(), {.title = "short-lived"});
            std::this_thread::sleep_for(3ms);
        }
    });
    for (const auto bound = Steady::now() + 2s; Steady::now() < bound;) {
        (void)session_.frontTitle();
        (void)session_.workspace->runningApplications("debian-xterm");
        EXPECT_TRUE(session_.workspace->freshStack(5s));
        QCoreApplication::processEvents();
    }
    isOver = true;
    churn.join();
    const OwnWindow window(own_.get(), {.title = "still here"});
    ASSERT_TRUE(session_.waitForFront(window));
    EXPECT_EQ(session_.frontTitle(), "still here");
}

TEST_F(DesktopAdapters, AnnounceEachApplicationThatComesToTheFront) {
    const OwnWindow first(own_.get(), {.title = "ours"});
    ASSERT_TRUE(session_.waitForFront(first));
    std::vector<std::string> announced;
    auto observation = session_.workspace->observeActivation(
        [&](const auto& application) { announced.push_back(application->localizedName.value()); });
    const Program terminal({"xterm", "-T", "terminal"});
    ASSERT_TRUE(session_.runUntil([&] { return announced.size() == 1; }));
    // Another window of the same application is no other application.
    const auto isTerminal = [&] {
        return !session_.workspace->runningApplications("debian-xterm").empty();
    };
    EXPECT_TRUE(session_.runUntil(isTerminal));
    first.activate();
    ASSERT_TRUE(session_.runUntil([&] { return announced.size() == 2; }));
    const OwnWindow second(own_.get(), {.title = "ours, too"});
    ASSERT_TRUE(session_.waitForFront(second));
    EXPECT_EQ(announced, (std::vector<std::string>{"XTerm", "Test"}));
    observation.reset();
    terminal.signal(SIGTERM);
    ASSERT_TRUE(session_.runUntil([&] { return !isTerminal(); }));
    EXPECT_EQ(announced.size(), 2U);
}

TEST_F(DesktopAdapters, KeepNobodyWaitingWhileAClientHoldsTheServer) {
    const OwnWindow window(own_.get(), {.title = "before"});
    ASSERT_TRUE(session_.waitForFront(window));
    auto leaving = x11::FrontWindowWatcher::start({});
    ASSERT_NE(leaving, nullptr);
    ASSERT_TRUE(leaving->read(5s));
    xcb_grab_server(own_.get());
    const x11::Reply<xcb_get_input_focus_reply_t> done(
        xcb_get_input_focus_reply(own_.get(), xcb_get_input_focus(own_.get()), nullptr));
    const auto began = Steady::now();
    const auto front = session_.workspace->frontmostApplication();
    for (const char* bundle : {"com.google.Chrome", "com.apple.Safari", "com.brave.Browser"})
        (void)session_.workspace->runningApplications(bundle);
    EXPECT_LT(Steady::now() - began, 50ms) << "for all questions together";
    const bool mayBeRead = session_.guard->contentMayBeRead();
    const auto took = Steady::now() - began;
    (void)leaving->read(10ms);
    leaving.reset(); // nor is anybody kept from quitting
    xcb_ungrab_server(own_.get());
    xcb_flush(own_.get());
    EXPECT_LT(took, 500ms);
    ASSERT_TRUE(front);
    EXPECT_EQ(front->processIdentifier, getpid());
    EXPECT_FALSE(mayBeRead);
    EXPECT_TRUE(session_.guard->contentMayBeRead());
    const OwnWindow another(own_.get(), {.title = "after", .windowClass = {"After\0After", 11}});
    EXPECT_TRUE(session_.waitForFront(another));
    EXPECT_TRUE(session_.runUntil([&] {
        return session_.workspace->frontmostApplication()->localizedName == "After";
    })) << "it waits again";
}

TEST_F(DesktopAdapters, ListTheWindowsOnTheScreenInTheirOrderWithTheirFrames) {
    const OwnWindow first(own_.get(), {.title = "Password reset"});
    ASSERT_TRUE(session_.waitForFront(first));
    const OwnWindow second(own_.get(), {.title = "Notes"});
    ASSERT_TRUE(session_.waitForFront(second));
    const auto indexOf = [](const WindowStack& stack, const OwnWindow& window) {
        const auto found = std::find_if(stack.windows.begin(), stack.windows.end(),
                                        [&](const StackedWindow& candidate) {
                                            return candidate.front.window == window.identifier();
                                        });
        return static_cast<std::size_t>(found - stack.windows.begin());
    };
    const auto stack = session_.workspace->freshStack(5s);
    ASSERT_TRUE(stack);
    EXPECT_EQ(stack->active, second.identifier());
    const auto below = indexOf(*stack, first);
    const auto above = indexOf(*stack, second);
    ASSERT_LT(below, above);
    ASSERT_LT(above, stack->windows.size());
    for (const std::size_t index : {below, above}) {
        const StackedWindow& window = stack->windows[index];
        EXPECT_EQ(window.front.identity.process.processIdentifier, getpid());
        EXPECT_GE(window.place.width, 300);
        EXPECT_GT(window.place.height, 200) << "a frame with a title bar";
        EXPECT_EQ(window.cover, Area{window.place});
    }
    EXPECT_EQ(stack->windows[below].front.title, "Password reset");

    WithheldWindows regions([&](auto patience) { return session_.workspace->freshStack(patience); },
                            session_.windows, session_.catalogue);
    std::optional<Area> withheld; // absent where a busy machine takes longer than the bound
    ASSERT_TRUE(session_.runUntil([&] { return (withheld = regions.withheld()).has_value(); }));
    EXPECT_EQ(*withheld, without({stack->windows[below].place}, stack->windows[above].place));
    first.activate();
    EXPECT_TRUE(session_.runUntil([&] {
        withheld = regions.withheld();
        return withheld == Area{stack->windows[below].place};
    }));
}

TEST_F(DesktopAdapters, CountAWindowOfAnotherDesktopAsSeenWhereEachMonitorMayShowItsOwn) {
    const OwnWindow window(own_.get(), {.title = "Password reset"});
    ASSERT_TRUE(session_.waitForFront(window));
    const RootLists lists(own_.get());
    const auto atom = [&](std::string_view name) {
        const auto length = static_cast<std::uint16_t>(name.size());
        const x11::Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
            own_.get(), xcb_intern_atom(own_.get(), 0, length, name.data()), nullptr));
        return reply->atom;
    };
    const auto root = xcb_setup_roots_iterator(xcb_get_setup(own_.get())).data->root;
    const x11::Reply<xcb_get_property_reply_t> manager(xcb_get_property_reply(
        own_.get(),
        xcb_get_property(own_.get(), 0, root, atom("_NET_SUPPORTING_WM_CHECK"), XCB_ATOM_WINDOW, 0,
                         1),
        nullptr));
    ASSERT_EQ(xcb_get_property_value_length(manager.get()), 4);
    const auto isSeen = [&](std::string_view managerName) {
        xcb_change_property(own_.get(), XCB_PROP_MODE_REPLACE,
                            *static_cast<xcb_window_t*>(xcb_get_property_value(manager.get())),
                            atom("_NET_WM_NAME"), atom("UTF8_STRING"), 8,
                            static_cast<std::uint32_t>(managerName.size()), managerName.data());
        std::free(xcb_get_input_focus_reply(own_.get(), xcb_get_input_focus(own_.get()), nullptr));
        const auto stack = session_.workspace->freshStack(5s).value();
        return std::any_of(stack.windows.begin(), stack.windows.end(), [&](const auto& each) {
            return each.front.window == window.identifier();
        });
    };
    // As a compositor says that it is there, and the manager that the focus is on another monitor.
    xcb_set_selection_owner(own_.get(), window.identifier(), atom("_NET_WM_CM_S0"),
                            XCB_CURRENT_TIME);
    const std::uint32_t another = 7;
    xcb_change_property(own_.get(), XCB_PROP_MODE_REPLACE, root, atom("_NET_CURRENT_DESKTOP"),
                        XCB_ATOM_CARDINAL, 32, 1, &another);
    EXPECT_TRUE(isSeen("i3"));
    EXPECT_FALSE(isSeen("KWin"));
    EXPECT_TRUE(isSeen("Openbox"));
    lists.writeAnew();
}

TEST_F(DesktopAdapters, TrustNoStackShortlyAfterAWindowCameOrWent) {
    const auto settles = [&] {
        return session_.runUntil([&] { return session_.workspace->settledStack(5s).has_value(); });
    };
    auto window = std::make_unique<OwnWindow>(own_.get(), OwnWindow::Marks{.title = "stays"});
    ASSERT_TRUE(session_.waitForFront(*window));
    ASSERT_TRUE(settles());
    auto changes = session_.workspace->windowChanges();
    const auto hasChanged = [&] {
        (void)session_.workspace->freshFrontWindow(5s);
        return session_.workspace->windowChanges() != changes;
    };
    auto other = std::make_unique<OwnWindow>(own_.get(), OwnWindow::Marks{.title = "comes"});
    ASSERT_TRUE(session_.runUntil(hasChanged));
    EXPECT_FALSE(session_.workspace->settledStack(5s));
    EXPECT_TRUE(session_.workspace->freshStack(5s));
    ASSERT_TRUE(settles());
    changes = session_.workspace->windowChanges();
    other.reset();
    ASSERT_TRUE(session_.runUntil(hasChanged));
    EXPECT_FALSE(session_.workspace->settledStack(5s));
    EXPECT_TRUE(settles());
}

TEST_F(DesktopAdapters, TrustNoStackShortlyAfterTheWindowInFrontHadAWithheldTitle) {
    const OwnWindow window(own_.get(), {.title = "Mail"});
    ASSERT_TRUE(session_.waitForFront(window));
    const auto isSettled = [&] { return session_.workspace->settledStack(5s).has_value(); };
    // Heard of without being asked for.
    const auto retitle = [&](const char* title) {
        window.retitle(title);
        return session_.runUntil(
            [&] { return session_.workspace->lastFrontWindow()->title == title; });
    };
    ASSERT_TRUE(session_.runUntil(isSettled));
    ASSERT_TRUE(retitle("News"));
    EXPECT_TRUE(isSettled());
    ASSERT_TRUE(retitle("Enter your password") && retitle("Loading") && retitle("News"));
    EXPECT_FALSE(isSettled());
    EXPECT_TRUE(session_.workspace->freshStack(5s));
    EXPECT_TRUE(session_.runUntil(isSettled));
    EXPECT_EQ(session_.frontTitle(), "News");
}

TEST_F(DesktopAdapters, TakeListsThatAreWrittenAnewWithTheSameWindowsForNoChange) {
    const OwnWindow window(own_.get(), {.title = "stays"});
    ASSERT_TRUE(session_.waitForFront(window));
    ASSERT_TRUE(
        session_.runUntil([&] { return session_.workspace->settledStack(5s).has_value(); }));
    const auto changes = session_.workspace->windowChanges();
    const RootLists lists(own_.get());
    for (const auto bound = Steady::now() + 500ms; Steady::now() < bound;) {
        lists.writeAnew();
        EXPECT_TRUE(session_.workspace->settledStack(5s));
    }
    EXPECT_EQ(session_.workspace->windowChanges(), changes);
    lists.writeShortened();
    EXPECT_FALSE(session_.workspace->settledStack(5s));
    lists.writeAnew();
}

TEST_F(DesktopAdapters, SeeNothingInFrontWhileTheScreenIsLockedOrCovered) {
    const OwnWindow window(own_.get(), {.title = "on the desk"});
    ASSERT_TRUE(session_.waitForFront(window));
    window.fillScreen();
    const auto isFront = [&] { return session_.workspace->frontmostApplication().has_value(); };
    EXPECT_TRUE(isFront()) << "a window that fills the screen covers nothing of its own";
    const auto lock = [](const char* locked) {
        Program({"dbus-send", "--session", "--type=signal", "/org/freedesktop/ScreenSaver",
                 "org.freedesktop.ScreenSaver.ActiveChanged", std::string("boolean:") + locked})
            .wait();
    };
    lock("true");
    EXPECT_TRUE(session_.runUntil([&] { return !isFront(); }));
    EXPECT_FALSE(session_.guard->contentMayBeRead());
    lock("false");
    EXPECT_TRUE(session_.runUntil(isFront));
    {
        const OwnWindow locker(own_.get(), {.title = "locker", .coversScreen = true});
        EXPECT_TRUE(session_.runUntil([&] { return !isFront(); }));
        EXPECT_FALSE(session_.guard->contentMayBeRead());
        const HiddenWindows above(own_.get());
        EXPECT_FALSE(session_.guard->contentMayBeRead()) << "windows never shown uncover nothing";
    }
    EXPECT_TRUE(session_.runUntil(isFront));
    EXPECT_TRUE(session_.guard->contentMayBeRead());
    xcb_force_screen_saver(own_.get(), XCB_SCREEN_SAVER_ACTIVE);
    xcb_flush(own_.get());
    EXPECT_TRUE(session_.runUntil([&] { return !isFront(); }));
    xcb_force_screen_saver(own_.get(), XCB_SCREEN_SAVER_RESET);
    xcb_flush(own_.get());
    EXPECT_TRUE(session_.runUntil(isFront));
}

TEST(DesktopWithoutServer, SeesNothingAnyMoreAndLivesOn) {
    auto server = std::make_unique<XServer>();
    ASSERT_TRUE(server->isThere());
    DesktopSession session;
    ASSERT_NE(session.workspace, nullptr);
    (void)session.workspace->frontmostApplication();
    server.reset();
    EXPECT_TRUE(session.runUntil([&] { return !session.workspace->freshFrontWindow(1s); }));
    EXPECT_EQ(session.workspace->frontmostApplication(), std::nullopt);
    EXPECT_TRUE(session.workspace->runningApplications("debian-xterm").empty());
    EXPECT_FALSE(session.guard->contentMayBeRead());
}

} // namespace
} // namespace mnemora::desktop
