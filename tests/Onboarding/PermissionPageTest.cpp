#include "Linux/Desktop/PermissionPage.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace mnemora::desktop {
namespace {

using browsers::IntegrationState;

constexpr auto chrome = "com.google.Chrome";
const browsers::BrowserReport without{"Chromium", chrome, IntegrationState::notInstalled};
const browsers::BrowserReport with{"Chromium", chrome, IntegrationState::installed};
const browsers::BrowserReport managed{"Google Chrome", chrome,
                                      IntegrationState::needsAdministrator};

std::vector<PermissionAction> actions(const PermissionPage& page) {
    std::vector<PermissionAction> found;
    for (const auto& button : page.buttons)
        found.push_back(button.action);
    return found;
}

std::string wholeText(const PermissionPage& page) {
    std::string text = page.state + "\n" + page.explanation;
    for (const auto& item : page.items)
        text += "\n" + item.detail;
    for (const auto& note : page.notes)
        text += "\n" + note;
    return text;
}

TEST(PermissionPage, BelongsToASettingsAddress) {
    const std::string start = "x-apple.systempreferences:com.apple.preference.security?Privacy_";
    EXPECT_EQ(permissionOf(start + "Accessibility"), Permission::accessibility);
    EXPECT_EQ(permissionOf(start + "ScreenCapture"), Permission::screenCapture);
    EXPECT_EQ(permissionOf(start + "Automation"), Permission::automation);
    for (const std::string& other : {start, start + "Automations", start + "Microphone",
                                     std::string("https://example.org/"), std::string()})
        EXPECT_FALSE(permissionOf(other)) << other;
}

TEST(PermissionPage, AccessibilityOffersTheOtherPositionOfTheSwitch) {
    using Actions = std::vector<PermissionAction>;
    const auto off = accessibilityPage({.canRead = false, .isOn = false});
    EXPECT_EQ(actions(off), Actions{PermissionAction::turnAccessibilityOn});
    EXPECT_TRUE(off.buttons[0].isMain);
    EXPECT_FALSE(off.isGranted);
    EXPECT_NE(wholeText(off).find("have to be restarted"), std::string::npos);
    const auto on = accessibilityPage({.canRead = true, .isOn = true});
    EXPECT_EQ(actions(on), Actions{PermissionAction::turnAccessibilityOff});
    EXPECT_FALSE(on.buttons[0].isMain);
    EXPECT_TRUE(on.isGranted);
    // On, but unanswered, is not granted and is no reason to switch it on again.
    const auto silent = accessibilityPage({.canRead = false, .isOn = true});
    EXPECT_EQ(actions(silent), Actions{PermissionAction::turnAccessibilityOff});
    EXPECT_FALSE(silent.isGranted);
    const auto none = accessibilityPage({.canRead = false, .isOn = std::nullopt});
    EXPECT_TRUE(none.buttons.empty());
    EXPECT_NE(none.state.find("at-spi2-core"), std::string::npos);
    const auto refused =
        accessibilityPage({.canRead = false, .isOn = false, .lastChangeFailed = true});
    EXPECT_NE(refused.state.find("could not be changed"), std::string::npos);
}

TEST(PermissionPage, ScreenSaysWhatIsWrongInThisSession) {
    EXPECT_TRUE(screenPage({.canRead = true}).isGranted);
    EXPECT_NE(wholeText(screenPage({})).find("DISPLAY"), std::string::npos);
    EXPECT_TRUE(screenPage({}).buttons.empty());
}

TEST(PermissionPage, ScreenAsksOnlyWhereThereIsSomebodyToAsk) {
    using Way = ScreenConsent::Way;
    const auto page = [](bool canRead, const ScreenConsent::Facts& consent) {
        return screenPage({.canRead = canRead, .isWayland = true, .consent = consent});
    };
    EXPECT_TRUE(page(false, {.way = Way::unknown}).buttons.empty());
    EXPECT_TRUE(page(true, {.way = Way::compositor}).buttons.empty());
    const auto none = page(false, {.way = Way::none});
    EXPECT_TRUE(none.buttons.empty());
    EXPECT_NE(wholeText(none).find("xdg-desktop-portal"), std::string::npos);
    EXPECT_EQ(actions(page(true, {.way = Way::portal})),
              std::vector{PermissionAction::forbidScreen});
    std::vector<std::string> states;
    for (const auto& consent : {ScreenConsent::Facts{.way = Way::portal},
                                {.way = Way::portal, .isAsking = true},
                                {.way = Way::portal, .wasRefused = true},
                                {.way = Way::portal, .lastFailed = true}}) {
        const auto asked = page(false, consent);
        EXPECT_EQ(actions(asked), std::vector{PermissionAction::allowScreen});
        EXPECT_FALSE(asked.isGranted);
        EXPECT_EQ(std::ranges::count(states, asked.state), 0) << asked.state;
        states.push_back(asked.state);
    }
}

TEST(PermissionPage, AutomationOffersWhatIsLeftToDoInSomeBrowser) {
    constexpr auto install = PermissionAction::installExtension;
    constexpr auto remove = PermissionAction::removeExtension;
    struct Case {
        std::vector<browsers::BrowserReport> browsers;
        std::vector<PermissionAction> actions;
    };
    for (const Case& each :
         {Case{{}, {}}, Case{{without}, {install}}, Case{{with}, {remove}},
          Case{{with, managed}, {remove}}, Case{{without, managed}, {install, remove}}}) {
        const auto page = automationPage({.browsers = each.browsers});
        EXPECT_EQ(actions(page), each.actions);
        ASSERT_EQ(page.items.size(), each.browsers.size());
        for (std::size_t i = 0; i < page.items.size(); ++i)
            EXPECT_EQ(page.items[i].isDone, each.browsers[i].state == IntegrationState::installed);
    }
    EXPECT_TRUE(automationPage({.browsers = {without}, .isPacked = false}).buttons.empty());
    EXPECT_TRUE(automationPage({.canRead = true, .browsers = {with}}).isGranted);
}

TEST(PermissionPage, TellsTheAdministratorWhichFileGoesWhere) {
    const auto page = automationPage(
        {.browsers = {managed}, .configuration = "/home/me/.config", .extension = "abc"});
    EXPECT_NE(
        page.items[0].detail.find("/home/me/.config/google-chrome/External Extensions/abc.json"),
        std::string::npos);
    EXPECT_NE(page.items[0].detail.find("/opt/google/chrome/extensions"), std::string::npos);
}

} // namespace
} // namespace mnemora::desktop
