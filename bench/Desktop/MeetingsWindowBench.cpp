// Opening the Meetings window on a year of calls, without a screen.

#include "Meetings/MeetingsWindow.h"
#include "Store/StoreFixture.h"

#include <QApplication>
#include <QMainWindow>
#include <chrono>
#include <cstdio>

namespace mnemora::bench {
namespace {

constexpr int segments = 20'000;

void fill(MnemoraStore& store, int meetings) {
    for (int i = 0; i < segments; ++i) {
        const int meeting = i / (segments / meetings);
        store.insert({.ts = 1000.0 + i,
                      .source = "audio",
                      .app = "Meeting",
                      .bundle = std::to_string(meeting),
                      .kind = "meeting",
                      .person = i % 2 == 0 ? "You" : "Them",
                      .title = "Meeting · " + std::to_string(meeting),
                      .url = std::nullopt,
                      .body = "Utterance " + std::to_string(i) +
                              " says about as much as people say in one breath on a call."},
                     0);
    }
}

double secondsToShow(MnemoraStore& store) {
    const auto begin = std::chrono::steady_clock::now();
    MeetingsWindow::shared().show(store);
    QCoreApplication::processEvents();
    MeetingsWindow::shared().window()->grab(); // painted
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

} // namespace

void run() {
    for (const int meetings : {1, 200}) {
        const test::TemporaryHome home;
        const test::ScopedFakeClock time;
        MnemoraStore store(std::make_unique<test::FakeEmbedder>());
        fill(store, meetings);
        const double first = secondsToShow(store);
        std::printf("opening  %.2f s, again %.2f s  %d segments in %d meetings\n", first,
                    secondsToShow(store), segments, meetings);
    }
    MeetingsWindow::shared().window()->close();
}

} // namespace mnemora::bench

int main(int count, char** words) {
    setenv("QT_QPA_PLATFORM", "offscreen", 1);
    QApplication application(count, words);
    mnemora::bench::run();
    QMetaObject::invokeMethod(&application, "quit", Qt::QueuedConnection);
    return QApplication::exec();
}
