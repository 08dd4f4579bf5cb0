#include "Shell/AppDelegate.h"

#include "Meetings/MeetingDesktop.h"
#include "fakes/FakeShell.h"

#include <gmock/gmock.h>

namespace mnemora::test {
namespace {

using testing::ElementsAre;

class AppDelegateTest : public MeetingTest {
  protected:
    void SetUp() override {
        auto services = desktopServices();
        services.accessibility = accessibility;
        services.screenCapture = screen;
        services.defaults = std::make_shared<FakeDefaults>();
        services.statusArea = area;
        services.application = application;
        shell = std::make_unique<ScopedDesktopServices>(std::move(services));
        store = &open(std::make_unique<NoEmbedder>());
    }
    void launch() {
        delegate = std::make_unique<AppDelegate>(
            *store, ShellWindows{
                        .showMeetings = [this](MnemoraStore&) { windows.emplace_back("meetings"); },
                        .showOnboarding = [this] { windows.emplace_back("onboarding"); }});
        delegate->applicationDidFinishLaunching();
    }
    void add(double age, std::optional<std::string> app, const std::string& title,
             const std::string& body, const std::string& url) {
        MnemoraEvent made = event(title, time.clock->moment - age);
        made.app = app.value_or("");
        made.body = body;
        made.url = url;
        EXPECT_TRUE(store->insert(made, 0));
        if (!app)
            outside("UPDATE events SET app = NULL WHERE id = (SELECT max(id) FROM events);");
    }

    std::shared_ptr<FakeAccessibility> accessibility = std::make_shared<FakeAccessibility>();
    std::shared_ptr<FakeScreenCapture> screen = std::make_shared<FakeScreenCapture>();
    std::shared_ptr<FakeStatusArea> area = std::make_shared<FakeStatusArea>();
    std::shared_ptr<FakeApplication> application = std::make_shared<FakeApplication>();
    std::unique_ptr<ScopedDesktopServices> shell;
    MnemoraStore* store = nullptr;
    std::vector<std::string> windows;
    CapturedStderr log;
    std::unique_ptr<AppDelegate> delegate;
};

TEST_F(AppDelegateTest, AnEmptyMemoryShowsTheCommandsOnly) {
    launch();
    EXPECT_EQ(area->content.toolTip, "Mnemora");
    EXPECT_THAT(area->open(), ElementsAre("[● Capturing]", "[0 memories today]", "-",
                                          "🔴  Record meeting (on-device)", "Meetings…",
                                          "Setup & Permissions…", "Quit Mnemora"));
    EXPECT_EQ(area->content.menuNeedsUpdate().back().keyEquivalent, 'q');
    EXPECT_EQ(log.text(), "[mnemora] capture started → " + MnemoraStore::dbPath() + "\n");
}

TEST_F(AppDelegateTest, TheMenuTellsOfTheNewestMemoriesEachTimeItOpens) {
    launch();
    const double midnight = time.clock->startOfDay(time.clock->moment);
    const double sinceMidnight = time.clock->moment - midnight;
    add(sinceMidnight + 1, "Old", "yesterday", "", "");
    add(sinceMidnight, "Mail", "", "two\nwords", "https://x/");
    add(50, std::nullopt, "Nameless", "", "");
    add(40, "Clock", "", "", "");
    add(30, "Web", "", "", "https://example.org/");
    add(20, "Editor", "👩‍👩‍👧e\u0301" + std::string(60, 'x'), "", "");
    EXPECT_THAT(area->open(),
                ElementsAre("[● Capturing]", "[5 memories today]", "-", "[RECENT]",
                            "[  Editor — 👩‍👩‍👧e\u0301" + std::string(38, 'x') + "]",
                            "[  Web — https://example.org/]", "[  Clock]", "[  ? — Nameless]",
                            "[  Mail — two words]", "-", "🔴  Record meeting (on-device)",
                            "Meetings…", "Setup & Permissions…", "Quit Mnemora"));
    add(1, "", "", "", "");
    EXPECT_EQ(area->open().at(1), "[6 memories today]");
}

TEST_F(AppDelegateTest, AMissingPermissionOpensTheSetUpAndShows) {
    accessibility->trusted = false;
    launch();
    EXPECT_THAT(windows, ElementsAre("onboarding"));
    EXPECT_EQ(area->open().front(), "[● Limited — finish setup]");
    accessibility->trusted = true;
    EXPECT_EQ(area->open().front(), "[● Capturing]");
    screen->permitted = false;
    EXPECT_EQ(area->open().front(), "[● Limited — finish setup]");
}

TEST_F(AppDelegateTest, TheCommandsDoWhatTheySay) {
    launch();
    EXPECT_TRUE(windows.empty());
    EXPECT_TRUE(area->choose("Meetings"));
    EXPECT_TRUE(area->choose("Setup"));
    EXPECT_THAT(windows, ElementsAre("meetings", "onboarding"));
    delegate->showMenu();
    EXPECT_EQ(area->menusShown, 1);
    EXPECT_TRUE(area->choose("Quit"));
    EXPECT_THAT(application->calls, ElementsAre("terminate"));
}

TEST_F(AppDelegateTest, ARecordingShowsInMenuAndIconHoweverItBegan) {
    launch();
    EXPECT_TRUE(area->choose("🔴  Record meeting"));
    loop->runJobs();
    EXPECT_TRUE(area->recording);
    EXPECT_TRUE(area->choose("⏹  Stop recording meeting"));
    EXPECT_FALSE(area->recording);
    EXPECT_FALSE(area->choose("⏹"));
    workspace->activated(RunningApplication{
        .bundleIdentifier = "us.zoom.xos", .localizedName = "Calls", .processIdentifier = 7});
    panels->press("Record");
    loop->runJobs();
    EXPECT_TRUE(area->recording);
}

TEST_F(AppDelegateTest, TheMenuOpensOnAStoreThatCannotBeRead) {
    launch();
    add(10, "Mail", "Hello", "", "");
    outside("DROP TABLE events;");
    EXPECT_THAT(area->open(), ElementsAre("[● Capturing]", "[0 memories today]", "-",
                                          "🔴  Record meeting (on-device)", "Meetings…",
                                          "Setup & Permissions…", "Quit Mnemora"));
}

} // namespace
} // namespace mnemora::test
