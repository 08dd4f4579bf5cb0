#include "Capture/BrowserInspector.h"
#include "Capture/ScreenTextCapturer.h"
#include "Capture/WindowInspector.h"
#include "fakes/CapturedStderr.h"
#include "fakes/FakeDesktop.h"

#include <gtest/gtest.h>

namespace mnemora::test {
namespace {

constexpr auto settings = "x-apple.systempreferences:com.apple.preference.security?Privacy_";

TEST(WindowInspector, PassesTheTitleOnUnchanged) {
    FakeDesktop desktop;
    const RunningApplication application{
        .bundleIdentifier = "a", .localizedName = "A", .processIdentifier = 7};
    EXPECT_EQ(WindowInspector::focusedWindowTitle(application), std::nullopt);
    for (const std::optional<std::string>& title :
         {std::optional<std::string>(" x "), std::optional<std::string>(""),
          std::optional<std::string>()}) {
        desktop.accessibility->windows[7] = FocusedWindow{.title = title};
        EXPECT_EQ(WindowInspector::focusedWindowTitle(application), title);
    }
    WindowInspector::openSettings();
    ScreenTextCapturer::openSettings();
    EXPECT_EQ(desktop.workspace->opened,
              (std::vector<std::string>{std::string(settings) + "Accessibility",
                                        std::string(settings) + "ScreenCapture"}));
}

TEST(BrowserInspector, SpeaksEachBrowsersDialect) {
    FakeDesktop desktop;
    const std::vector<std::pair<std::string, std::string>> chromiumFamily = {
        {"com.google.Chrome", "Google Chrome"},
        {"company.thebrowser.Browser", "Arc"},
        {"com.microsoft.edgemac", "Microsoft Edge"},
        {"com.brave.Browser", "Brave Browser"}};
    std::vector<std::string> expected = {
        "tell application \"Safari\" to return URL of front document",
        "tell application \"Safari\" to return (do JavaScript \"document.body.innerText\" in front "
        "document)"};
    (void)BrowserInspector::currentTabURL("com.apple.Safari");
    (void)BrowserInspector::currentTabText("com.apple.Safari", 10);
    for (const auto& [bundle, name] : chromiumFamily) {
        expected.push_back("tell application \"" + name +
                           "\" to return URL of active tab of front window");
        expected.push_back("tell application \"" + name +
                           "\" to return (execute active tab of front window "
                           "javascript \"document.body.innerText\")");
        (void)BrowserInspector::currentTabURL(bundle);
        (void)BrowserInspector::currentTabText(bundle, 10);
    }
    EXPECT_EQ(desktop.scripts->compiled, expected);
    EXPECT_EQ(BrowserInspector::currentTabURL("org.mozilla.firefox"), std::nullopt);
    EXPECT_EQ(BrowserInspector::currentTabText("com.google.chrome", 10), std::nullopt);
    EXPECT_EQ(desktop.scripts->compiled.size(), expected.size());
}

TEST(BrowserInspector, TakesAnErrorAsAbsentAndCutsByCharacters) {
    FakeDesktop desktop;
    const std::string address = "tell application \"Safari\" to return URL of front document";
    const std::string page = "tell application \"Safari\" to return (do JavaScript "
                             "\"document.body.innerText\" in front document)";
    auto& answers = desktop.scripts->answers;
    answers[address] = {.failed = true, .text = "ignored"};
    EXPECT_EQ(BrowserInspector::currentTabURL("com.apple.Safari"), std::nullopt);
    answers[address] = {.failed = false, .text = std::nullopt};
    EXPECT_EQ(BrowserInspector::currentTabURL("com.apple.Safari"), std::nullopt);
    answers[page] = {.failed = false, .text = "e\u0301e\u0301e\u0301"};
    EXPECT_EQ(BrowserInspector::currentTabText("com.apple.Safari", 2), "e\u0301e\u0301");
    EXPECT_EQ(BrowserInspector::currentTabText("com.apple.Safari", 9), "e\u0301e\u0301e\u0301");
}

TEST(BrowserInspector, AsksForAccessWhereNoBrowserAnswers) {
    FakeDesktop desktop;
    EXPECT_FALSE(BrowserInspector::browserAccessGranted());
    BrowserInspector::requestBrowserAccess();
    EXPECT_EQ(desktop.workspace->opened,
              std::vector<std::string>{std::string(settings) + "Automation"});
    desktop.workspace->running["com.apple.Safari"] = {RunningApplication{}};
    desktop.workspace->running["com.brave.Browser"] = {RunningApplication{}};
    EXPECT_FALSE(BrowserInspector::browserAccessGranted());
    desktop.scripts->answers
        ["tell application \"Brave Browser\" to return URL of active tab of front window"] = {
        .failed = false, .text = "about:blank"};
    EXPECT_TRUE(BrowserInspector::browserAccessGranted());
    BrowserInspector::requestBrowserAccess();
    EXPECT_EQ(desktop.workspace->opened.size(), 1U);
}

TEST(ScreenTextCapturer, JoinsTheLinesOfTheFirstDisplay) {
    FakeDesktop desktop;
    desktop.screen->list = std::vector<Display>{{.identifier = 3, .width = 640, .height = 480},
                                                {.identifier = 4, .width = 1, .height = 1}};
    desktop.recognizer->lines = {{" one "}, {std::nullopt}, {"two"}, {""}, {"three"}};
    EXPECT_EQ(ScreenTextCapturer::captureText(), " one \ntwo\n\nthree");
    ASSERT_EQ(desktop.recognizer->seen.size(), 1U);
    EXPECT_EQ(desktop.recognizer->seen[0].width, 640);
    EXPECT_EQ(desktop.recognizer->seen[0].height, 480);
    EXPECT_EQ(desktop.recognizer->seen[0].stride, 3U);
    desktop.recognizer->lines.clear();
    EXPECT_EQ(ScreenTextCapturer::captureText(), "");
}

TEST(ScreenTextCapturer, SaysWhatFailedAndNothingWhereNothingMayBeRead) {
    FakeDesktop desktop;
    const CapturedStderr output;
    desktop.screen->list = std::vector<Display>();
    EXPECT_EQ(ScreenTextCapturer::captureText(), std::nullopt);
    desktop.screen->permitted = false;
    desktop.screen->list = Failure{"never asked"};
    EXPECT_EQ(ScreenTextCapturer::captureText(), std::nullopt);
    EXPECT_EQ(output.text(), "");
    desktop.screen->permitted = true;
    desktop.screen->list = Failure{"no server"};
    EXPECT_EQ(ScreenTextCapturer::captureText(), std::nullopt);
    desktop.screen->list = std::vector<Display>{Display{}};
    desktop.screen->failure = "gone";
    EXPECT_EQ(ScreenTextCapturer::captureText(), std::nullopt);
    EXPECT_EQ(output.text(), "[mnemora][error] screen capture failed: no server\n"
                             "[mnemora][error] screen capture failed: gone\n");
}

} // namespace
} // namespace mnemora::test
