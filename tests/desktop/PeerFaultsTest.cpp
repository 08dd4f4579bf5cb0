// X server and accessibility bus, and the programs behind them, that hang, die, flood or lie.
// What the main thread does of a tick is measured all the while.

#include "desktop/DesktopSession.h"
#include "desktop/FakeProgram.h"
#include "desktop/XServer.h"

#include "Linux/Browsers/AccessiblePages.h"
#include "fakes/CapturedStderr.h"
#include "fakes/ProcessUse.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <list>
#include <thread>
#include <unistd.h>

namespace mnemora::desktop {
namespace {

using namespace std::chrono_literals;
using Steady = std::chrono::steady_clock;
using test::LongestWait;
using test::ProcessUse;

/// The main thread's bound is 50 ms; whom it waits for may need longer for its own turn.
constexpr auto mainThreadBound = 400ms;

class PeerFaults : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_NE(session_.workspace, nullptr) << "to be run by scripts/virtual-session --a11y";
        ASSERT_TRUE(session_.runUntil([&] { return session_.titles->isProcessTrusted(); }));
    }

    /// The main thread's share of a tick, and a turn of its loop; each part is a wait of its own.
    void tick() {
        const auto front = longest_([&] { return session_.workspace->frontmostApplication(); });
        const int process = front ? front->processIdentifier : getpid();
        (void)longest_([&] { return session_.titles->focusedWindow(process); });
        (void)longest_([&] { return session_.workspace->runningApplications("org.example"); });
        longest_([] { QCoreApplication::processEvents(QEventLoop::AllEvents, 10); });
    }
    void tickFor(std::chrono::milliseconds time) {
        for (const auto end = Steady::now() + time; Steady::now() < end;)
            tick();
    }

    OwnConnection own_{xcb_connect(nullptr, nullptr)};
    DesktopSession session_;
    LongestWait longest_;
};

// --- The X server and its clients

class XPeerFaults : public PeerFaults {
  protected:
    xcb_window_t root() { return xcb_setup_roots_iterator(xcb_get_setup(own_.get())).data->root; }
    xcb_atom_t atom(std::string_view name) {
        const x11::Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
            own_.get(),
            xcb_intern_atom(own_.get(), 0, static_cast<std::uint16_t>(name.size()), name.data()),
            nullptr));
        return reply->atom;
    }
    void setRoot(std::string_view property, xcb_atom_t type, std::uint8_t format,
                 const std::string& bytes) {
        xcb_change_property(own_.get(), XCB_PROP_MODE_REPLACE, root(), atom(property), type, format,
                            static_cast<std::uint32_t>(bytes.size() * 8 / format), bytes.data());
        xcb_flush(own_.get());
    }
    [[nodiscard]] std::string rootBytes(std::string_view property) {
        const x11::Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
            own_.get(),
            xcb_get_property(own_.get(), 0, root(), atom(property), XCB_ATOM_ANY, 0, 4096),
            nullptr));
        return {static_cast<const char*>(xcb_get_property_value(reply.get())),
                static_cast<std::size_t>(xcb_get_property_value_length(reply.get()))};
    }
};

TEST_F(XPeerFaults, AClientThatFloodsCostsNoTurnAndLeavesNoBacklog) {
    const OwnWindow window(own_.get(), {.title = "calm"});
    ASSERT_TRUE(session_.waitForFront(window));
    auto before = ProcessUse::now();
    const auto stated = rootBytes("_NET_ACTIVE_WINDOW");
    const auto active = atom("_NET_ACTIVE_WINDOW");
    const std::string title(60000, 'x');
    std::atomic<bool> isOver = false;
    std::atomic<long> sent = 0;
    std::thread flood([&] {
        const OwnConnection connection(xcb_connect(nullptr, nullptr));
        const xcb_window_t none = XCB_WINDOW_NONE;
        while (!isOver) {
            for (int i = 0; i < 500; ++i)
                xcb_change_property(connection.get(), XCB_PROP_MODE_REPLACE, root(), active,
                                    XCB_ATOM_WINDOW, 32, 1,
                                    i % 2 == 0 ? static_cast<const void*>(stated.data()) : &none);
            xcb_change_property(connection.get(), XCB_PROP_MODE_REPLACE, window.identifier(),
                                XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8,
                                static_cast<std::uint32_t>(title.size()), title.data());
            // The server has taken them all.
            std::free(xcb_get_input_focus_reply(connection.get(),
                                                xcb_get_input_focus(connection.get()), nullptr));
            sent += 500;
        }
    });
    tickFor(2s);
    isOver = true;
    flood.join();
    setRoot("_NET_ACTIVE_WINDOW", XCB_ATOM_WINDOW, 32, stated);
    const auto ended = Steady::now();
    EXPECT_TRUE(session_.runUntil([&] { return session_.frontTitle() == "calm"; }));
    RecordProperty("changes", std::to_string(sent));
    RecordProperty("longest_ms", std::to_string(longest_.longest().count()));
    EXPECT_GT(sent, 4000);
    EXPECT_LT(Steady::now() - ended, 10s) << "a backlog";
    EXPECT_LT(longest_.longest(), mainThreadBound);
    EXPECT_TRUE(before.comesBack()) << before << " before, " << ProcessUse::now() << " after";
}

TEST_F(XPeerFaults, WhatLiesOnTheRootWindowIsAnAbsentValueAndGoesWithTheLie) {
    const OwnWindow window(own_.get(), {.title = "truth"});
    ASSERT_TRUE(session_.waitForFront(window));
    const auto active = rootBytes("_NET_ACTIVE_WINDOW");
    const auto clients = rootBytes("_NET_CLIENT_LIST");
    // As many windows as a request holds, none of which exists, and every other one the root.
    std::string manyWindows;
    for (std::uint32_t i = 0; i < 60'000; ++i) {
        const std::uint32_t number = i % 2 == 0 ? 0x00FFFF00U + i : root();
        manyWindows.append(reinterpret_cast<const char*>(&number), sizeof number);
    }
    struct Lie {
        std::string_view property;
        xcb_atom_t type;
        std::uint8_t format;
        std::string bytes;
    };
    const std::vector<Lie> lies = {
        {"_NET_ACTIVE_WINDOW", XCB_ATOM_STRING, 8, "abc"},
        {"_NET_ACTIVE_WINDOW", XCB_ATOM_WINDOW, 32, std::string(4, '\xff')},
        {"_NET_ACTIVE_WINDOW", XCB_ATOM_WINDOW, 32, ""},
        {"_NET_CLIENT_LIST", XCB_ATOM_STRING, 8, "not a window"},
        {"_NET_CLIENT_LIST", XCB_ATOM_WINDOW, 32, manyWindows},
        {"_NET_CLIENT_LIST_STACKING", XCB_ATOM_WINDOW, 32, manyWindows},
    };
    for (const Lie& lie : lies) {
        setRoot(lie.property, lie.type, lie.format, lie.bytes);
        tickFor(100ms);
        (void)session_.workspace->freshStack(100ms);
    }
    setRoot("_NET_ACTIVE_WINDOW", XCB_ATOM_WINDOW, 32, active);
    setRoot("_NET_CLIENT_LIST", XCB_ATOM_WINDOW, 32, clients);
    setRoot("_NET_CLIENT_LIST_STACKING", XCB_ATOM_WINDOW, 32, clients);
    EXPECT_TRUE(session_.runUntil([&] { return session_.frontTitle() == "truth"; }));
    EXPECT_LT(longest_.longest(), mainThreadBound);
}

TEST(XServerFaults, AServerThatHangsHoldsNobodyUpAndIsReadAgainWhenItGoesOn) {
    const XServer server;
    ASSERT_TRUE(server.isThere());
    const OwnConnection own(xcb_connect(nullptr, nullptr));
    DesktopSession session;
    ASSERT_NE(session.workspace, nullptr);
    const OwnWindow window(own.get(), {.title = "shown"});
    xcb_set_input_focus(own.get(), XCB_INPUT_FOCUS_PARENT, window.identifier(), XCB_CURRENT_TIME);
    xcb_flush(own.get());
    ASSERT_TRUE(session.runUntil([&] {
        return session.workspace->freshFrontWindow(1s) && session.titles->isProcessTrusted();
    }));
    auto before = ProcessUse::now();
    LongestWait longest;
    server.signal(SIGSTOP);
    for (int i = 0; i < 20; ++i) {
        (void)longest([&] { return session.workspace->frontmostApplication(); });
        (void)longest([&] { return session.titles->focusedWindow(getpid()); });
    }
    EXPECT_FALSE(session.guard->contentMayBeRead());
    server.signal(SIGCONT);
    EXPECT_LT(longest.longest(), mainThreadBound);
    EXPECT_TRUE(session.runUntil([&] { return session.guard->contentMayBeRead(); }));
    EXPECT_EQ(session.frontTitle(), "shown");
    EXPECT_TRUE(before.comesBack()) << before << " before, " << ProcessUse::now() << " after";
}

// --- The accessibility bus and the programs on it

class AccessibilityFaults : public PeerFaults {
  protected:
    void SetUp() override {
        PeerFaults::SetUp();
        ASSERT_TRUE(program_.isConnected());
        learn("at first");
    }
    /// Has the adapter hear of the program and its title.
    void learn(const std::string& title) {
        program_.behave(title);
        program_.announce();
        EXPECT_TRUE(session_.runUntil([&] { return heard() == title; })) << title;
    }
    std::optional<std::string> heard() { return session_.windows->last(getpid()).name; }
    /// As the guard asks.
    std::optional<atspi::WindowReading> read() {
        return longest_([&] { return session_.windows->read(getpid(), 150ms); });
    }
    /// Waits until nobody waits for it any more.
    bool countsAsHung() {
        return session_.runUntil([&] {
            const auto began = Steady::now();
            return !read() && Steady::now() - began < 10ms;
        });
    }

    FakeProgram program_;
};

TEST_F(AccessibilityFaults, AProgramThatHangsIsHeardAgainOnceItSpeaks) {
    auto before = ProcessUse::now();
    program_.hang();
    EXPECT_EQ(read(), std::nullopt);
    EXPECT_EQ(heard(), "at first") << "the title of a program that hangs doesn't change";
    EXPECT_TRUE(countsAsHung());
    tickFor(200ms);
    learn("spoke up");
    EXPECT_TRUE(read());
    EXPECT_LT(longest_.longest(), mainThreadBound);
    EXPECT_TRUE(before.comesBack()) << before << " before, " << ProcessUse::now() << " after";
}

TEST_F(AccessibilityFaults, AWithheldTitleThatGoesIsAChangeAndOthersAreNone) {
    const auto changesWhenCalled = [&](const char* title) {
        program_.behave(title);
        const auto all = session_.windows->readAll(10s);
        EXPECT_TRUE(all);
        EXPECT_EQ(heard(), title);
        return all ? all->changes : 0;
    };
    const auto before = changesWhenCalled("Draft");
    EXPECT_EQ(changesWhenCalled("Letter"), before);
    const auto withheld = changesWhenCalled("Your password");
    EXPECT_GT(withheld, before);
    EXPECT_GT(changesWhenCalled("Letter"), withheld) << "it may still be painted";
}

// One that is left out would have windows that nobody asks for.
TEST_F(AccessibilityFaults, EachOfVeryManyProgramsIsAsked) {
    std::list<FakeProgram> many(100);
    for (FakeProgram& program : many)
        ASSERT_TRUE(program.join());
    EXPECT_TRUE(session_.runUntil([&] {
        (void)session_.windows->readAll(1s);
        return std::ranges::all_of(many, [](const auto& program) { return program.surveys() > 0; });
    }));
}

using AccessibilityLongFaults = AccessibilityFaults;

TEST_F(AccessibilityLongFaults, AProgramThatHangsIsAskedAgainWithinTwoTicks) {
    program_.hang();
    EXPECT_TRUE(countsAsHung());
    const auto began = Steady::now();
    program_.behave("awake");
    EXPECT_TRUE(session_.runUntil([&] {
        const auto reading = read();
        return reading && reading->name == "awake";
    }));
    EXPECT_LT(Steady::now() - began, 12s);
}

TEST_F(AccessibilityLongFaults, AServiceThatIsSlowToStartIsAskedAgain) {
    const int service = accessibilityServiceProcess();
    ASSERT_GT(service, 0);
    kill(service, SIGSTOP);
    const atspi::AccessibleWindows early;
    const bool isKnown = early.waitUntilKnown(10s);
    const bool isAvailable = early.isAvailable();
    kill(service, SIGCONT);
    EXPECT_TRUE(isKnown);
    EXPECT_FALSE(isAvailable);
    EXPECT_TRUE(session_.runUntil([&] { return early.isAvailable(); }));
}

TEST_F(AccessibilityFaults, AProgramThatFloodsIsAskedNoMoreThanItAnswers) {
    auto before = ProcessUse::now();
    constexpr int signals = 5000;
    const int surveys = program_.surveys();
    auto flood = std::async(std::launch::async, [&] { program_.announce(signals); });
    while (flood.wait_for(0s) != std::future_status::ready)
        tick();
    // Also one that answers nothing meanwhile.
    program_.hang();
    program_.announce(signals);
    tickFor(1s);
    EXPECT_LT(program_.surveys() - surveys, signals / 4);
    RecordProperty("surveys", std::to_string(program_.surveys() - surveys));
    RecordProperty("longest_ms", std::to_string(longest_.longest().count()));
    learn("calm again");
    EXPECT_LT(longest_.longest(), mainThreadBound);
    EXPECT_TRUE(before.comesBack()) << before << " before, " << ProcessUse::now() << " after";
}

TEST_F(AccessibilityFaults, AProgramThatLiesIsUnknownAndDoesNoHarm) {
    const test::CapturedStderr log;
    auto before = ProcessUse::now();
    const auto text = [](std::size_t length) {
        return g_variant_new("(v)", g_variant_new_string(std::string(length, 'x').c_str()));
    };
    const auto number = [] { return g_variant_new("(u)", 7U); };
    const std::string own = program_.service();
    struct Lie {
        const char* what;
        FakeProgram::Reply children, name, state;
    };
    const auto windows = [own] { return FakeProgram::objects(own, "/test/window"); };
    const auto isActive = [] {
        const guint32 words[] = {2, 0};
        return g_variant_new("(@au)",
                             g_variant_new_fixed_array(G_VARIANT_TYPE_UINT32, words, 2, 4));
    };
    const std::vector<Lie> lies = {
        {"children of another type", number, number, number},
        {"children of nobody", [] { return FakeProgram::objects("no name at all", "/x"); },
         [&] { return text(3); }, isActive},
        {"children without a service", [] { return FakeProgram::objects("", "/x"); },
         [&] { return text(3); }, isActive},
        {"children of one that is gone", [] { return FakeProgram::objects(":1.99999", "/x"); },
         [&] { return text(3); }, isActive},
        {"very many children", [own] { return FakeProgram::objects(own, "/x", 100'000); },
         [&] { return text(3); }, isActive},
        {"a name of another type", windows,
         [] { return g_variant_new("(v)", g_variant_new_byte(1)); }, isActive},
        {"a name that is huge", windows, [&] { return text(16U << 20); }, isActive},
        {"a state of another type", windows, [&] { return text(3); }, number},
        {"a state of no words", windows, [&] { return text(3); },
         [] {
             return g_variant_new("(@au)", g_variant_new_array(G_VARIANT_TYPE_UINT32, nullptr, 0));
         }},
    };
    for (const Lie& lie : lies) {
        program_.answer({lie.children, lie.name, lie.state});
        program_.announce();
        (void)read();
        tickFor(50ms);
        const auto name = heard();
        EXPECT_TRUE(!name || name->size() <= 65536U) << lie.what;
        // The next answer that is none counts again; a busy machine may let it come too late, and
        // then it is asked for, as by each tick.
        const auto truth = std::string("truth after ") + lie.what;
        program_.behave(truth);
        program_.announce();
        EXPECT_TRUE(session_.runUntil([&] { return read() && heard() == truth; })) << lie.what;
    }
    EXPECT_EQ(log.text(), "");
    EXPECT_LT(longest_.longest(), mainThreadBound);
    EXPECT_TRUE(before.comesBack()) << before << " before, " << ProcessUse::now() << " after";
}

/// Lets everything be read.
struct OpenGuard : FrontWindowGuard {
    bool contentMayBeRead() override { return true; }
};

TEST_F(AccessibilityFaults, ABusThatHangsHoldsNeitherTicksNorWorkersUp) {
    const int bus = accessibilityBusProcess();
    ASSERT_GT(bus, 0);
    browsers::AccessiblePages pages({.frontmostApplication = [] { return "com.google.Chrome"; },
                                     .guard = std::make_shared<OpenGuard>()});
    const auto ask = [&] {
        return pages
            .compile("tell application \"Google Chrome\" to return URL of active tab of front "
                     "window")
            ->execute();
    };
    (void)std::async(std::launch::async, ask).get(); // what the library starts once stays
    auto before = ProcessUse::now();
    kill(bus, SIGSTOP);
    const auto began = Steady::now();
    std::vector<std::future<ScriptResult>> workers;
    for (int i = 0; i < 3; ++i)
        workers.push_back(std::async(std::launch::async, ask));
    tickFor(500ms);
    bool haveEnded = true;
    for (auto& worker : workers)
        haveEnded = worker.wait_until(began + 6s) == std::future_status::ready && haveEnded;
    kill(bus, SIGCONT);
    EXPECT_TRUE(haveEnded) << "their bound is 1.3 seconds";
    for (auto& worker : workers)
        EXPECT_TRUE(worker.get().failed);
    learn("goes on");
    EXPECT_TRUE(session_.runUntil([&] { return read().has_value(); }));
    EXPECT_LT(longest_.longest(), mainThreadBound);
    EXPECT_TRUE(before.comesBack()) << before << " before, " << ProcessUse::now() << " after";
}

TEST_F(AccessibilityFaults, ABusThatDiesIsFoundAgain) {
    auto before = ProcessUse::now();
    kill(accessibilityBusProcess(), SIGKILL);
    EXPECT_TRUE(session_.runUntil([&] { return !session_.titles->isProcessTrusted(); }));
    EXPECT_EQ(heard(), std::nullopt);
    tickFor(100ms);
    // As the desktop or the setup window switches it on.
    const auto switchOn = [] {
        Program({"dbus-send", "--session", "--dest=org.a11y.Bus", "--type=method_call",
                 "/org/a11y/bus", "org.freedesktop.DBus.Properties.Set", "string:org.a11y.Status",
                 "string:IsEnabled", "variant:boolean:true"})
            .wait();
    };
    const auto began = Steady::now();
    EXPECT_TRUE(session_.runUntil([&, asked = Steady::time_point()]() mutable {
        if (Steady::now() - asked > 500ms) {
            switchOn();
            asked = Steady::now();
        }
        return session_.titles->isProcessTrusted();
    }));
    EXPECT_LT(Steady::now() - began, 12s) << "two ticks";
    EXPECT_LT(longest_.longest(), mainThreadBound);
    EXPECT_TRUE(before.comesBack()) << before << " before, " << ProcessUse::now() << " after";
}

} // namespace
} // namespace mnemora::desktop
