#include "Meetings/MeetingCoordinator.h"

#include "Meetings/MeetingDesktop.h"

namespace mnemora::test {
namespace {

class MeetingCoordinatorTest : public MeetingTest {
  protected:
    void SetUp() override {
        coordinator = std::make_shared<MeetingCoordinator>(open());
        coordinator->start();
    }
    static RunningApplication application(const std::string& bundle) {
        return {.bundleIdentifier = bundle, .localizedName = "Calls", .processIdentifier = 7};
    }
    void activate(const std::string& bundle) { workspace->activated(application(bundle)); }
    [[nodiscard]] size_t offers() const { return panels->cards.size(); }

    std::shared_ptr<MeetingCoordinator> coordinator;
    CapturedStderr log;
};

TEST_F(MeetingCoordinatorTest, OffersEachCallApplicationOnceADay) {
    activate("us.zoom.xos");
    EXPECT_EQ(offers(), 1U);
    activate("com.hnc.Discord"); // an offer is open: no second one, and no mark
    panels->press("Not now");
    EXPECT_EQ(*panels->onScreen, 0);
    activate("us.zoom.xos");
    EXPECT_EQ(offers(), 1U);
    activate("com.hnc.Discord");
    EXPECT_EQ(offers(), 2U);
    panels->press("Not now");
    time.clock->moment = time.clock->startOfDay(time.clock->moment + 86400) + 1;
    activate("us.zoom.xos");
    EXPECT_EQ(offers(), 3U);
    EXPECT_EQ(log.text(), "");
    EXPECT_TRUE(input->calls.empty()); // nothing was recorded or asked for
}

TEST_F(MeetingCoordinatorTest, OnlyTheListedApplicationsCount) {
    workspace->activated(std::nullopt);
    workspace->activated(RunningApplication{});
    for (const auto* other : {"", "US.zoom.xos", "us.zoom.xos ", "com.google.Chrome"})
        activate(other);
    EXPECT_EQ(offers(), 0U);
    for (const auto& bundle : MeetingCoordinator::callApps()) {
        activate(bundle);
        panels->press("Not now");
    }
    EXPECT_EQ(offers(), 9U);
}

TEST_F(MeetingCoordinatorTest, TheOfferSaysWhatItIs) {
    activate("us.zoom.xos");
    const auto& card = panels->cards.back();
    EXPECT_EQ(card.message, "You're on a call. Record it on-device?\nAudio never leaves your Mac.");
    ASSERT_EQ(card.buttons.size(), 2U);
    EXPECT_EQ(card.buttons[0].title, "Not now");
    EXPECT_FALSE(card.buttons[0].isDefault);
    EXPECT_EQ(card.buttons[1].title, "Record");
    EXPECT_TRUE(card.buttons[1].isDefault);
    EXPECT_EQ(card.margins, (CardMargins{14, 16, 14, 16}));
    // 18 below the bar and 18 from the right, on a screen that begins elsewhere.
    EXPECT_EQ(cardFrame(card, {.x = 1920, .y = 30, .width = 1280, .height = 700}, 300, 100),
              (CardFrame{2882, 48, 300, 100}));
}

TEST_F(MeetingCoordinatorTest, RecordAsksAndStartsAndNoOfferComesMeanwhile) {
    activate("us.zoom.xos");
    panels->press("Record");
    EXPECT_EQ(*panels->onScreen, 0);
    EXPECT_FALSE(coordinator->recorder().isRecording()); // the answer comes to the main thread
    loop->runJobs();
    EXPECT_TRUE(coordinator->recorder().isRecording());
    activate("com.hnc.Discord");
    EXPECT_EQ(offers(), 1U);
    coordinator->recorder().stop();
    activate("com.hnc.Discord"); // wasn't marked while recording
    EXPECT_EQ(offers(), 2U);
}

TEST_F(MeetingCoordinatorTest, ARefusedPermissionIsSaidAndNothingRecorded) {
    input->granted = false;
    activate("us.zoom.xos");
    panels->press("Record");
    loop->runJobs();
    EXPECT_FALSE(coordinator->recorder().isRecording());
    EXPECT_EQ(log.text(), "[mnemora][error] meeting recording: mic/speech permission denied\n");
    input->granted = true;
    coordinator->beginRecording(); // the menu's way stays open
    loop->runJobs();
    EXPECT_TRUE(coordinator->recorder().isRecording());
}

TEST_F(MeetingCoordinatorTest, ADesktopWithoutCardsOrOwnersIsQuiet) {
    const auto activated = workspace->activated;
    {
        const ScopedDesktopServices bare({.mainLoop = loop});
        activate("us.zoom.xos");
        EXPECT_EQ(offers(), 0U);
        std::make_shared<MeetingCoordinator>(open())->start();
    }
    coordinator.reset();
    activated(application("com.hnc.Discord"));
    EXPECT_EQ(offers(), 0U);
}

} // namespace
} // namespace mnemora::test
