#include "Nudges/NudgeController.h"

#include "Meetings/MeetingDesktop.h"
#include "fakes/FakeShell.h"

#include <gmock/gmock.h>
#include <limits>

namespace mnemora::test {
namespace {

using namespace std::chrono_literals;

constexpr double nineOClock = 1'700'000'000;
constexpr auto today = "2026-11-16";

struct Case {
    const char* what;
    NudgeState state;
    double now;
    std::int64_t total;
    std::optional<std::int64_t> shown;
};

TEST(NudgeRules, DecideWhenACardIsDue) {
    const NudgeState fresh{.baseline = 500, .day = today, .count = 0, .last = 0};
    const NudgeState atNine{.baseline = 500, .day = today, .count = 1, .last = nineOClock};
    const NudgeState third{.baseline = 500, .day = today, .count = 3, .last = nineOClock};
    const NudgeState yesterdays{.baseline = 500, .day = "2026-11-15", .count = 3, .last = 1};
    const NudgeState firstDay{.baseline = 500, .day = {}, .count = 7, .last = 0};
    const NudgeState hostile{.baseline = std::numeric_limits<std::int64_t>::min(),
                             .day = today,
                             .count = std::numeric_limits<std::int64_t>::min(),
                             .last = -1e300};
    const auto later = [](double hours) { return nineOClock + hours * 3600; };
    const Case cases[] = {
        {"one too few", fresh, nineOClock, 529, {}},
        {"enough", fresh, nineOClock, 530, 30},
        {"a store that can't count", fresh, nineOClock, 0, {}},
        {"a minute before four hours", atNine, later(4) - 60, 900, {}},
        {"after four hours", atNine, later(4), 900, 400},
        {"a clock set back a day", atNine, later(-24), 900, {}},
        {"three on a day", third, later(9), 9000, {}},
        {"the next day", yesterdays, nineOClock, 540, 40},
        {"the first evaluation ever", firstDay, nineOClock, 530, 30},
        {"numbers that nobody wrote", hostile, nineOClock, 5, {}},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.what);
        const auto decision =
            NudgeRules::decide(each.state, each.now, today, [&] { return each.total; });
        EXPECT_EQ(decision.newCount, each.shown);
        EXPECT_EQ(decision.state.day, today);
        const auto countBefore = each.state.day == today ? each.state.count : 0;
        const NudgeState expected{.baseline = each.shown ? each.total : each.state.baseline,
                                  .day = today,
                                  .count = countBefore + (each.shown ? 1 : 0),
                                  .last = each.shown ? each.now : each.state.last};
        EXPECT_EQ(decision.state, expected);
    }
}

class NudgeControllerTest : public MeetingTest {
  protected:
    void SetUp() override {
        auto services = desktopServices();
        services.defaults = defaults;
        withDefaults = std::make_unique<ScopedDesktopServices>(std::move(services));
        controller = std::make_shared<NudgeController>(open(std::make_unique<NoEmbedder>()));
    }
    void addEvents(int count) {
        outside("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
                std::to_string(count) +
                ") INSERT INTO events(ts, source, kind, title, hash) "
                "SELECT 1, 'screen', 'window', 'one', random() FROM n;");
    }
    /// The turn of the timer, and the clock with it.
    void pass(std::chrono::seconds duration) {
        time.clock->moment += static_cast<double>(duration.count());
        loop->advance(duration);
    }

    std::shared_ptr<FakeDefaults> defaults = std::make_shared<FakeDefaults>();
    std::unique_ptr<ScopedDesktopServices> withDefaults;
    std::shared_ptr<NudgeController> controller;
};

TEST_F(NudgeControllerTest, TellsOfWhatCameSinceTheLastCard) {
    addEvents(500);
    controller->start();
    EXPECT_EQ(defaults->integer("nudge.baseline"), 500);
    addEvents(30);
    pass(20min - 1s);
    EXPECT_TRUE(panels->cards.empty()); // the first look is 20 minutes after the start
    pass(1s);
    ASSERT_EQ(panels->cards.size(), 1U);
    EXPECT_EQ(panels->cards[0].message,
              "While you worked, I captured 30 new things.\nAsk Claude what you did ↗");
    EXPECT_EQ(cardFrame(panels->cards[0], {.x = 0, .y = 0, .width = 1000, .height = 700}, 300, 60),
              (CardFrame{682, 622, 300, 60}));
    EXPECT_EQ(defaults->integer("nudge.baseline"), 530);
    EXPECT_EQ(defaults->integer("nudge.count"), 1);
    EXPECT_EQ(defaults->real("nudge.last"), time.clock->moment);
    pass(12s);
    EXPECT_EQ(*panels->onScreen, 0);
    addEvents(30);
    pass(3h + 59min);
    EXPECT_EQ(panels->cards.size(), 1U);
    pass(20min);
    EXPECT_EQ(panels->cards.size(), 2U);
}

TEST_F(NudgeControllerTest, AClickOpensTheAssistantAndTakesTheCardAway) {
    controller->start();
    addEvents(40);
    pass(20min);
    ASSERT_EQ(panels->cards.size(), 1U);
    const auto clicked = panels->cards[0].clicked;
    clicked();
    EXPECT_EQ(*panels->onScreen, 0);
    EXPECT_EQ(workspace->opened,
              std::vector<std::string>{"https://claude.ai/new?q=Use%20Mnemora%20to%20tell%20me%20"
                                       "what%20I%20worked%20on%20today."});
    controller.reset();
    clicked(); // nobody is there any more
    EXPECT_EQ(workspace->opened.size(), 1U);
}

TEST_F(NudgeControllerTest, ACardThatCannotBeShownIsNotCounted) {
    controller->start();
    addEvents(40);
    {
        auto services = desktopServices();
        services.panels = nullptr;
        const ScopedDesktopServices noScreen(std::move(services));
        pass(20min);
    }
    EXPECT_EQ(defaults->integer("nudge.count"), 0);
    EXPECT_EQ(defaults->integer("nudge.baseline"), 0);
    pass(20min);
    ASSERT_EQ(panels->cards.size(), 1U);
    EXPECT_THAT(panels->cards[0].message, testing::HasSubstr("captured 40 new"));
}

TEST_F(NudgeControllerTest, TheBaselineOutlivesTheRunAndMidnight) {
    addEvents(10);
    defaults->values = {{"nudge.baseline", std::int64_t{0}}};
    controller->start();
    EXPECT_EQ(defaults->integer("nudge.baseline"), 0);
    pass(24h);
    EXPECT_TRUE(panels->cards.empty());
    addEvents(20);
    pass(20min);
    ASSERT_EQ(panels->cards.size(), 1U);
}

} // namespace
} // namespace mnemora::test
