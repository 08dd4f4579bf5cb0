#include "Onboarding/OnboardingView.h"

#include "fakes/FakeDesktop.h"

#include <gtest/gtest.h>

namespace mnemora {
namespace {

constexpr auto chrome = "com.google.Chrome";
constexpr auto addressScript =
    "tell application \"Google Chrome\" to return URL of active tab of front window";

class OnboardingTest : public testing::Test {
  protected:
    void runBrowser() {
        desktop_.workspace->running[chrome] = {RunningApplication{chrome, "Chromium", 9}};
        desktop_.scripts->answers[addressScript] = {.failed = false,
                                                    .text = "https://example.org/"};
    }

    test::FakeDesktop desktop_;
};

TEST_F(OnboardingTest, ShowsWhatFollowsFromEachStateOfThePermissions) {
    struct Case {
        bool screen, accessibility, browser;
        std::string label;
    };
    for (const Case& each :
         {Case{true, true, true, "Start remembering"}, Case{false, true, false, "Continue"},
          Case{true, false, true, "Continue"}, Case{true, true, false, "Start remembering"},
          Case{false, false, false, "Continue"}}) {
        desktop_.screen->permitted = each.screen;
        desktop_.accessibility->trusted = each.accessibility;
        desktop_.workspace->running.clear();
        if (each.browser)
            runBrowser();
        const OnboardingView view({});
        EXPECT_EQ(view.primaryLabel(), each.label);
        EXPECT_EQ(view.offersRestart(), !each.screen);
        const auto rows = view.rows();
        ASSERT_EQ(rows.size(), 3U);
        EXPECT_EQ(rows[0].isGranted, each.screen);
        EXPECT_EQ(rows[1].isGranted, each.accessibility);
        EXPECT_EQ(rows[2].isGranted, each.browser);
        for (const auto& row : rows)
            EXPECT_EQ(row.detail.starts_with("Granted — "), row.isGranted) << row.detail;
    }
}

TEST_F(OnboardingTest, ARecheckTellsWhetherAnythingIsNew) {
    desktop_.accessibility->trusted = false;
    OnboardingView view({});
    EXPECT_FALSE(view.recheck());
    desktop_.accessibility->trusted = true;
    runBrowser();
    EXPECT_TRUE(view.recheck());
    EXPECT_EQ(view.primaryLabel(), "Start remembering");
    EXPECT_TRUE(view.rows()[2].isGranted);
    EXPECT_FALSE(view.recheck());
    desktop_.workspace->running.clear(); // the browser has ended
    EXPECT_TRUE(view.recheck());
    EXPECT_FALSE(view.rows()[2].isGranted);
}

TEST_F(OnboardingTest, EachGrantLeadsToItsOwnSettings) {
    const OnboardingView view({});
    for (const auto& row : view.rows())
        row.grant();
    const std::string page = "x-apple.systempreferences:com.apple.preference.security?Privacy_";
    EXPECT_EQ(desktop_.workspace->opened,
              (std::vector{page + "ScreenCapture", page + "Accessibility", page + "Automation"}));
}

TEST(OnboardingWithoutServices, CountsEverythingAsMissing) {
    const ScopedDesktopServices none({});
    const OnboardingView view({});
    EXPECT_TRUE(view.offersRestart());
    EXPECT_EQ(view.primaryLabel(), "Continue");
}

} // namespace
} // namespace mnemora
