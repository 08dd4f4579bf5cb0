#include "Linux/Wayland/CompositorWatcher.h"

#include "Wayland/FakeCompositor.h"
#include "fakes/CapturedStderr.h"
#include "fakes/ProcessUse.h"
#include "fakes/ScopedVariable.h"

#include <gtest/gtest.h>

namespace mnemora::wayland {
namespace {

using namespace std::chrono_literals;

constexpr std::uint32_t minimized = 1, activated = 2;

class CompositorWatcherTest : public testing::Test {
  protected:
    static CompositorState read(CompositorWatcher& watcher) {
        const auto state = watcher.read(10s);
        EXPECT_TRUE(state);
        return state.value_or(CompositorState());
    }
    static void waitFor(CompositorWatcher& watcher) {
        watcher.waitUntilKnown(10s);
        ASSERT_TRUE(watcher.last().isConnected);
    }
};

TEST_F(CompositorWatcherTest, KnowsEachWindowAsItWasLastDescribedUntilItCloses) {
    FakeCompositor compositor({});
    CompositorWatcher watcher(CompositorWatcher::Options{});
    waitFor(watcher);
    compositor.describe("a", "Notes", "foot", {activated});
    compositor.describe("b", "bad \xFF title", std::string(1000, 'x'), {minimized});
    auto state = read(watcher);
    ASSERT_EQ(state.windows->size(), 2U);
    EXPECT_EQ(state.windows->front(), (ListedWindow{.number = state.windows->front().number,
                                                    .title = "Notes",
                                                    .applicationId = "foot",
                                                    .isActive = true}));
    EXPECT_EQ(state.windows->back().title, "bad \uFFFD title");
    EXPECT_EQ(state.windows->back().applicationId.size(), 256U);
    EXPECT_TRUE(state.windows->back().isMinimized);

    const auto before = state.changes;
    compositor.describe("a", "Notes, saved", "foot", {activated});
    state = read(watcher);
    EXPECT_EQ(state.windows->front().title, "Notes, saved");
    EXPECT_EQ(state.changes, before) << "a title alone";
    compositor.describe("a", "Your password", "foot", {activated});
    const auto withheld = read(watcher).changes;
    EXPECT_GT(withheld, before);
    compositor.describe("a", "Notes, saved", "foot", {activated});
    EXPECT_GT(read(watcher).changes, withheld) << "which may still be painted";
    compositor.describe("a", "Notes, saved", "foot", {});
    EXPECT_GT(read(watcher).changes, before);
    compositor.close("b");
    EXPECT_EQ(read(watcher).windows->size(), 1U);
}

TEST_F(CompositorWatcherTest, SeesNobodyThereWhileIdleOrInTheDark) {
    FakeCompositor compositor({.idle = true, .power = true});
    CompositorWatcher watcher(CompositorWatcher::Options{});
    waitFor(watcher);
    EXPECT_FALSE(read(watcher).isAway);
    compositor.setIdle(true);
    EXPECT_TRUE(read(watcher).isAway);
    compositor.setIdle(false);
    EXPECT_FALSE(read(watcher).isAway);
    compositor.setPower(false);
    EXPECT_TRUE(read(watcher).isAway);
    compositor.setPower(true);
    EXPECT_FALSE(read(watcher).isAway);
}

TEST_F(CompositorWatcherTest, ListsNothingWhereTheCompositorOffersNothing) {
    const FakeCompositor compositor({.toplevels = false});
    CompositorWatcher watcher(CompositorWatcher::Options{});
    waitFor(watcher);
    EXPECT_EQ(read(watcher).windows, std::nullopt);
    EXPECT_FALSE(read(watcher).isAway);
}

TEST_F(CompositorWatcherTest, KeepsNobodyWaitingForACompositorThatHangs) {
    FakeCompositor compositor({});
    CompositorWatcher watcher(CompositorWatcher::Options{});
    waitFor(watcher);
    compositor.describe("a", "Notes", "foot", {activated});
    EXPECT_EQ(read(watcher).windows->size(), 1U);
    {
        const auto hanging = compositor.hang();
        EXPECT_EQ(watcher.read(50ms), std::nullopt);
        EXPECT_EQ(watcher.last().windows->size(), 1U);
    }
    EXPECT_EQ(read(watcher).windows->size(), 1U);
}

// A minute of readings used to fill the socket, and then the connection was lost.
TEST_F(CompositorWatcherTest, KeepsItsConnectionThroughALongHang) {
    FakeCompositor compositor({});
    const auto connection = Connection::open();
    ASSERT_TRUE(connection);
    {
        const auto hanging = compositor.hang();
        for (int reading = 0; reading < 1500; ++reading)
            ASSERT_FALSE(connection->roundtrip(1ms));
    }
    EXPECT_TRUE(connection->roundtrip(10s));
    EXPECT_TRUE(connection->isAlive());
}

TEST_F(CompositorWatcherTest, AFloodIsReadAndAListWithoutEndCountsForNothing) {
    auto before = test::ProcessUse::now();
    {
        FakeCompositor compositor({});
        CompositorWatcher watcher(CompositorWatcher::Options{});
        waitFor(watcher);
        test::LongestWait longest;
        for (int i = 0; i < 20'000; ++i) {
            const auto window = std::to_string(i % 100);
            compositor.describe(window, window + std::string(500, '\xFF'), "foot", {activated});
            if (i % 100 == 0)
                longest([&] { return watcher.read(50ms); });
        }
        EXPECT_LT(longest.longest(), 400ms);
        EXPECT_EQ(read(watcher).windows->size(), 100U);
        compositor.openUntold(1000);
        EXPECT_EQ(read(watcher).windows->size(), 100U) << "nothing is known of the others";
        compositor.openUntold(4000);
        EXPECT_EQ(read(watcher).windows, std::nullopt);
        EXPECT_TRUE(read(watcher).isConnected);
    }
    EXPECT_TRUE(before.comesBack()) << before << " before, " << test::ProcessUse::now() << " after";
}

TEST_F(CompositorWatcherTest, SaysOnceThatThereIsNone) {
    const test::CapturedStderr log;
    const test::ScopedVariable nowhere("WAYLAND_DISPLAY", "/nowhere/wayland-7");
    CompositorWatcher watcher(CompositorWatcher::Options{});
    watcher.waitUntilKnown(10s);
    EXPECT_EQ(watcher.read(10s), std::nullopt);
    EXPECT_EQ(log.text(), "[mnemora][error] no compositor: cannot connect to Wayland display "
                          "/nowhere/wayland-7\n");
}

} // namespace
} // namespace mnemora::wayland
