#include "Meetings/MeetingsWindow.h"

#include "Meetings/MeetingsView.h"
#include "Store/StoreFixture.h"

#include <QAbstractTextDocumentLayout>
#include <QApplication>
#include <QMainWindow>
#include <QScrollBar>
#include <QTextBlock>
#include <QTextLayout>

namespace mnemora::test {
namespace {

/// The toolkit without a screen.
class Toolkit : public testing::Environment {
  public:
    void SetUp() override {
        setenv("QT_QPA_PLATFORM", "offscreen", 1);
        application_ = std::make_unique<QApplication>(count_, arguments_);
    }
    void TearDown() override {
        QMetaObject::invokeMethod(application_.get(), "quit", Qt::QueuedConnection);
        QApplication::exec();
        EXPECT_EQ(MeetingsWindow::shared().window(), nullptr); // let go with the application
        application_.reset();
    }

  private:
    char name_[5] = "test";
    char* arguments_[2] = {name_, nullptr};
    int count_ = 1;
    std::unique_ptr<QApplication> application_;
};
const auto* const toolkit =
    testing::AddGlobalTestEnvironment(std::make_unique<Toolkit>().release());

class MeetingsWindowTest : public StoreTest {
  protected:
    static void say(MnemoraStore& store, double ts, const char* who, const char* text,
                    const char* key) {
        store.insert({.ts = ts,
                      .source = "audio",
                      .app = "Meeting",
                      .bundle = key,
                      .kind = "meeting",
                      .person = who,
                      .title = std::string("Meeting ") + key,
                      .url = std::nullopt,
                      .body = text},
                     0);
    }
    static MeetingsView& view() {
        return dynamic_cast<MeetingsView&>(*MeetingsWindow::shared().window()->centralWidget());
    }
    static QListWidget& list() { return *view().findChild<QListWidget*>(); }
    static QString transcript() { return view().findChild<TranscriptView*>()->toPlainText(); }
    static bool showsTranscript() { return !view().findChild<TranscriptView*>()->isHidden(); }
};

TEST_F(MeetingsWindowTest, EveryOpeningShowsTheStoreAsItIsWithTheNewestSelected) {
    auto& store = open();
    auto& window = MeetingsWindow::shared();
    window.show(store);
    EXPECT_EQ(window.window()->windowTitle().toStdString(), "Mnemora — Meetings");
    EXPECT_EQ(list().item(0)->text().toStdString(),
              "No meetings yet.\nStart one from the menu bar:\n“🔴 Record meeting”.");
    EXPECT_EQ(list().count(), 1);
    EXPECT_FALSE(view().selected());
    EXPECT_FALSE(showsTranscript());

    say(store, 10, "You", "Hello?\nAnybody?", "1");
    say(store, 11, "Them", "שלום", "1");
    say(store, 12, "You", "<b>bye</b>", "1");
    const auto* former = window.window();
    window.window()->resize(900, 600);
    window.window()->close();
    window.show(store);
    EXPECT_EQ(window.window(), former);
    EXPECT_EQ(window.window()->size(), QSize(900, 600));
    EXPECT_EQ(view().selected(), "1");
    EXPECT_TRUE(showsTranscript());
    EXPECT_EQ(transcript().toStdString(),
              "Meeting 1\nYou\nHello?\nAnybody?\nThem\nשלום\nYou\n<b>bye</b>\n"
              "Transcribed on-device · audio never uploaded");

    list().setCurrentRow(-1);
    EXPECT_FALSE(showsTranscript());
    say(store, 20, "You", "Again", "2");
    window.show(store);
    EXPECT_EQ(view().selected(), "2");
    ASSERT_EQ(list().count(), 2);
    EXPECT_EQ(list().item(0)->data(Qt::UserRole).toString().toStdString(), "1 segments");
    EXPECT_EQ(list().item(1)->data(Qt::UserRole).toString().toStdString(), "3 segments");
    list().setCurrentRow(1);
    EXPECT_EQ(view().selected(), "1");
    window.window()->showMinimized();
    window.show(store);
    EXPECT_FALSE(window.window()->isMinimized());
}

TEST_F(MeetingsWindowTest, TheUsersWordsStandAtTheRightAndAllOthersAtTheLeft) {
    TranscriptView pane;
    pane.resize(500, 400);
    pane.show({"1", "", 0, {{"You", "Mine"}, {"you", "Theirs"}}});
    const auto picture = pane.grab().toImage();
    const auto* document = pane.document();
    const double footer =
        document->documentLayout()->blockBoundingRect(document->lastBlock()).top();
    // Whether anything of at least this saturation is drawn between two columns, above the footer.
    const auto drawn = [&](int from, int to, int saturation) {
        for (int y = 0; y < footer; ++y)
            for (int x = from; x < to; ++x)
                if (const QColor pixel = picture.pixelColor(x, y);
                    pixel != picture.pixelColor(250, 1) && pixel.saturation() >= saturation)
                    return true;
        return false;
    };
    EXPECT_TRUE(drawn(380, 470, 20)); // green
    EXPECT_TRUE(drawn(20, 120, 0));
    EXPECT_FALSE(drawn(20, 120, 20)); // grey
    EXPECT_FALSE(drawn(150, 350, 0));
}

TEST_F(MeetingsWindowTest, ATranscriptKeepsItsDistances) {
    TranscriptView pane;
    pane.resize(500, 400);
    pane.show({"1", "Title", 0, {{"You", "Mine"}, {"Them", "Theirs"}}});
    // Of each block's lines, without the margins around them.
    std::vector<QRectF> lines;
    for (auto block = pane.document()->begin(); block.isValid(); block = block.next())
        lines.push_back(
            block.layout()->boundingRect().translated(0, block.layout()->position().y()));
    ASSERT_EQ(lines.size(), 6U);
    const auto gap = [&](std::size_t block) {
        return lines[block].top() - lines[block - 1].bottom();
    };
    EXPECT_EQ(gap(1), 12);         // title to speaker
    EXPECT_EQ(gap(2), 3 + 8);      // speaker to bubble, and its inner space
    EXPECT_EQ(gap(3), 8 + 12);     // the bubble's inner space, to the next speaker
    EXPECT_EQ(gap(5), 8 + 12 + 4); // to the footer
}

TEST_F(MeetingsWindowTest, ABubbleIsDrawnAsLongAsItsRimIsSeen) {
    TranscriptView pane;
    pane.resize(500, 100);
    pane.show({"1", "", 0, std::vector<MeetingLine>(20, {"You", "Mine"})});
    const auto bubble = pane.document()->findBlockByNumber(2);
    const double end = bubble.layout()->position().y() + bubble.layout()->boundingRect().height();
    pane.verticalScrollBar()->setValue(static_cast<int>(end) + 3);
    const auto picture = pane.grab().toImage();
    const QColor rim = picture.pixelColor(pane.viewport()->width() - 40, 1);
    EXPECT_GE(rim.saturation(), 10) << rim.name().toStdString();
}

} // namespace
} // namespace mnemora::test
