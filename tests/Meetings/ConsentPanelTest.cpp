// The offer as the user meets it: the toolkit's own card, pressed with the mouse.

#include "Linux/Desktop/CardPanels.h"
#include "Meetings/MeetingCoordinator.h"
#include "Meetings/MeetingDesktop.h"

#include <QApplication>
#include <QPushButton>
#include <QScreen>

namespace mnemora::test {
namespace {

class ConsentPanelTest : public MeetingTest {
  protected:
    void SetUp() override {
        coordinator = std::make_shared<MeetingCoordinator>(open());
        coordinator->start();
    }
    void activate(const std::string& bundle) {
        workspace->activated(RunningApplication{
            .bundleIdentifier = bundle, .localizedName = std::nullopt, .processIdentifier = 0});
    }
    /// The card on screen; null when there is none.
    static QWidget* card() {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        for (auto* widget : QApplication::topLevelWidgets())
            if (widget->windowType() == Qt::ToolTip && widget->isVisible())
                return widget;
        return nullptr;
    }
    static void press(const char* title) {
        for (auto* button : card()->findChildren<QPushButton*>())
            if (button->text() == title)
                return button->click();
        FAIL() << "no button " << title;
    }

    ScopedDesktopServices withCards{
        {.mainLoop = loop,
         .workspace = workspace,
         .audioInput = input,
         .systemAudio = system,
         .speech = speech,
         .panels = std::make_shared<desktop::CardPanels>(
             [](int size, const QColor&, double) { return QPixmap(size, size); })}};
    std::shared_ptr<MeetingCoordinator> coordinator;
};

TEST_F(ConsentPanelTest, LiesInTheCornerAndTakesNoFocus) {
    EXPECT_EQ(card(), nullptr);
    activate("us.zoom.xos");
    ASSERT_NE(card(), nullptr);
    const auto screen = QGuiApplication::primaryScreen()->availableGeometry();
    EXPECT_EQ(card()->geometry().right(), screen.right() - 18);
    EXPECT_EQ(card()->geometry().top(), screen.top() + 18);
    EXPECT_TRUE(card()->windowFlags().testFlag(Qt::WindowDoesNotAcceptFocus));
    EXPECT_TRUE(card()->windowFlags().testFlag(Qt::WindowStaysOnTopHint));
    EXPECT_TRUE(card()->testAttribute(Qt::WA_ShowWithoutActivating));
}

TEST_F(ConsentPanelTest, EachButtonTakesItAway) {
    activate("us.zoom.xos");
    press("Not now");
    EXPECT_EQ(card(), nullptr);
    loop->runJobs();
    EXPECT_FALSE(coordinator->recorder().isRecording());
    activate("com.hnc.Discord");
    press("Record");
    EXPECT_EQ(card(), nullptr);
    loop->runJobs();
    EXPECT_TRUE(coordinator->recorder().isRecording());
}

} // namespace
} // namespace mnemora::test
