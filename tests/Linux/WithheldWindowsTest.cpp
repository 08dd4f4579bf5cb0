// Which windows beside the one in front are kept out of the picture, and what of them shows.

#include "Linux/Desktop/WithheldWindows.h"

#include <gtest/gtest.h>

#include <random>

namespace mnemora::desktop {
namespace {

/// Windows on a screen of a few pixels, each with its rectangle painted over the ones below.
std::vector<std::size_t> painted(const WindowStack& stack, int side) {
    std::vector<std::size_t> screen(static_cast<std::size_t>(side) * static_cast<std::size_t>(side),
                                    stack.windows.size());
    for (std::size_t index = 0; index < stack.windows.size(); ++index)
        for (int y = 0; y < side; ++y)
            for (int x = 0; x < side; ++x)
                if (!intersection(stack.windows[index].place, {x, y, 1, 1}).isEmpty())
                    screen[static_cast<std::size_t>(y * side + x)] = index;
    return screen;
}

TEST(VisibleArea, IsExactlyWhatIsPaintedOfTheWithheldWindows) {
    constexpr int side = 24;
    std::mt19937 random(7);
    const auto upTo = [&](int bound) { return static_cast<int>(random() % unsigned(bound)); };
    for (int round = 0; round < 200; ++round) {
        WindowStack stack;
        for (int window = 0; window < 6; ++window) {
            const Rectangle place{upTo(side), upTo(side), 1 + upTo(12), 1 + upTo(12)};
            stack.windows.push_back({{}, place, {place}});
        }
        const std::vector<std::size_t> withheld = {0, 2, 3};
        const auto area = visibleArea(stack, withheld);
        const auto screen = painted(stack, side);
        for (int y = 0; y < side; ++y)
            for (int x = 0; x < side; ++x) {
                const auto top = screen[static_cast<std::size_t>(y * side + x)];
                const bool isExpected = top == 0 || top == 2 || top == 3;
                const bool isIn = std::any_of(area.begin(), area.end(), [&](const Rectangle& part) {
                    return !intersection(part, {x, y, 1, 1}).isEmpty();
                });
                ASSERT_EQ(isIn, isExpected) << round << ": " << x << ", " << y;
            }
    }
}

TEST(VisibleArea, ShowsThroughWhatCoversOnlyInPart) {
    const Rectangle place{0, 0, 10, 10};
    const WindowStack stack{{{{}, place, {place}}, {{}, place, {{0, 0, 10, 4}}}, {{}, place, {}}}};
    EXPECT_EQ(visibleArea(stack, {0}), (Area{{0, 4, 10, 6}}));
    EXPECT_EQ(visibleArea(stack, {1}), (Area{place}));
}

TEST(VisibleArea, HidesTooMuchRatherThanTooLittleBehindVeryManyWindows) {
    WindowStack stack{{{{}, {0, 0, 4000, 4000}, {}}}};
    for (int i = 0; i < 2000; ++i)
        stack.windows.push_back({{}, {}, {{(i % 50) * 80, (i / 50) * 80, 40, 40}}});
    const auto area = visibleArea(stack, {0});
    EXPECT_LE(area.size(), maxPieces);
    for (int i = 0; i < 2000; ++i) {
        const Rectangle between{(i % 50) * 80 + 60, (i / 50) * 80 + 60, 1, 1};
        if (intersection(between, stack.windows[0].place).isEmpty())
            continue;
        EXPECT_TRUE(std::any_of(area.begin(), area.end(), [&](const Rectangle& part) {
            return !intersection(part, between).isEmpty();
        }));
    }
}

TEST(WithheldWindow, TakesTheUnmanagedOnesOfItsProcessAlong) {
    WindowStack stack;
    const auto add = [&](std::uint32_t window, int process) {
        stack.windows.emplace_back().front.window = window;
        stack.windows.back().front.identity.process.processIdentifier = process;
    };
    add(0, 7), add(1, 7), add(2, 7), add(0, 7), add(0, 8), add(3, 0), add(0, 0);
    EXPECT_EQ(withUnmanaged(stack, {1, 3, 5}), (std::vector<std::size_t>{0, 1, 3, 5}));
    EXPECT_EQ(withUnmanaged(stack, {5}), (std::vector<std::size_t>{5}));
    EXPECT_EQ(withUnmanaged(stack, {}), std::vector<std::size_t>());
}

TEST(WithheldWindow, IsOneThatTheFilterConcealsOrWhosePrivacyIsUnknown) {
    using atspi::WindowReading;
    const auto names = [](std::vector<std::string> all, bool areAll = true) {
        return WindowReading{std::nullopt, false, std::move(all), areAll};
    };
    struct Case {
        Browser browser;
        std::optional<std::string> title;
        std::optional<WindowReading> reading;
        bool isWithheld;
        std::string bundle = "org.example.Program";
        bool isManaged = true;
        std::string instance = "Navigator";
    };
    const std::string news = "News - Chromium";
    const std::string hidden = "Bank - Chromium (Incognito)";
    const std::vector<Case> cases = {
        {Browser::None, "Notes", {}, false},
        {Browser::None, std::nullopt, {}, false},
        {Browser::None, "Password reset", {}, true},
        {Browser::None, "Vault", {}, true, "com.1password.1password"},
        {Browser::None, "Vault", {}, true, "com.1password.1password", false},
        {Browser::Chromium, news, names({news}), false},
        {Browser::Chromium, news, names({news, hidden}), false},
        {Browser::Chromium, "Bank - Chromium", names({news, hidden}), true},
        {Browser::Chromium, "Bank - Chromium", names({"Bank - Chromium", hidden}), true},
        {Browser::Chromium, "Bank - Chromium", names({"Bank - Chromium (anonym)"}), true},
        {Browser::Chromium, news, names({news}, false), true},
        {Browser::Chromium, news, names({"Other - Chromium"}), true},
        {Browser::Chromium, news, std::nullopt, true},
        {Browser::Chromium, std::nullopt, names({news}), true},
        {Browser::Chromium, std::nullopt, std::nullopt, false, "com.google.Chrome", false},
        {Browser::Firefox, "News — Mozilla Firefox", {}, false},
        {Browser::Firefox, "News — Mozilla Firefox Privater Modus", {}, true},
        {Browser::Firefox, std::nullopt, {}, true},
        {Browser::Firefox, "Page Info — https://bank.example", {}, true, "", true, "Browser"},
        {Browser::Firefox, "Picture-in-Picture", {}, true, "", true, "Toolkit"},
        {Browser::Unmarked, "News", names({"News"}), true},
        {Browser::WebKit, "News", {}, true}, // of a process that nothing is known of
    };
    PrivateWindowMarkers markers;
    for (const Case& test : cases) {
        StackedFacts facts;
        facts.window.front.window = test.isManaged ? 1 : 0;
        facts.window.front.title = test.title;
        facts.window.front.identity.instance = test.instance;
        facts.application = {test.bundle, std::nullopt, test.browser};
        facts.reading = test.reading;
        EXPECT_EQ(isWithheld(facts, markers), test.isWithheld)
            << static_cast<int>(test.browser) << " " << test.title.value_or("-");
    }
}

} // namespace
} // namespace mnemora::desktop
