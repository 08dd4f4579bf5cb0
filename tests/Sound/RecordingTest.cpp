// Recordings with real sound; the recogniser alone is scripted. Runs inside scripts/audio-session.

#include "Linux/Sound/PulseAudioInput.h"
#include "Linux/Sound/PulseSystemAudio.h"
#include "Meetings/MeetingRecorder.h"
#include "Sound/SoundSession.h"
#include "Store/StoreFixture.h"
#include "fakes/CapturedStderr.h"
#include "fakes/FakeDesktop.h"
#include "fakes/FakeSpeech.h"

#include <thread>

namespace mnemora::test {
namespace {

/// Background jobs on real threads; nothing is posted here.
class ThreadedLoop : public FakeMainLoop {
  public:
    void background(std::function<void()> job) override { threads_.emplace_back(std::move(job)); }
    void join() { threads_.clear(); }

  private:
    std::vector<std::jthread> threads_;
};

class RecordingTest : public StoreTest {
  protected:
    /// Whether both sides' requests have got sound.
    bool bothHear() {
        const auto& made = speech->recognizers;
        return made.size() >= 2 && hears(*made.back()) && hears(*made[made.size() - 2]);
    }
    static bool hears(FakeSpeechRecognizer& recognizer) {
        const std::lock_guard lock(recognizer.requests.back()->mutex);
        return !recognizer.requests.back()->buffers.empty();
    }

    std::shared_ptr<ThreadedLoop> loop = std::make_shared<ThreadedLoop>();
    std::shared_ptr<FakeSpeechService> speech = std::make_shared<FakeSpeechService>();
    ScopedDesktopServices installed{{.mainLoop = loop,
                                     .audioInput = std::make_shared<pulse::PulseAudioInput>(loop),
                                     .systemAudio = std::make_shared<pulse::PulseSystemAudio>(),
                                     .speech = speech}};
};

TEST_F(RecordingTest, AHundredQuickStartsAndStopsLeaveNothingBehind) {
    const CapturedStderr log;
    const auto recorder = std::make_shared<MeetingRecorder>(open());
    for (int i = 0; i < 100; ++i) {
        recorder->start();
        if (i % 10 == 5)
            std::this_thread::yield(); // some stops meet a later stage of the set-up
        if (i % 25 == 24) {
            EXPECT_TRUE(eventually([&] { return bothHear(); }));
        }
        recorder->stop();
    }
    recorder->start();
    EXPECT_TRUE(eventually([&] { return bothHear(); }));
    loop->join();
    EXPECT_TRUE(eventually([] { return ourStreams() == 2; })) << ourStreams();
    recorder->stop();
    EXPECT_TRUE(eventually([] { return ourStreams() == 0; }));
    EXPECT_EQ(log.text().find("[error]"), std::string::npos) << log.text();
}

} // namespace
} // namespace mnemora::test
