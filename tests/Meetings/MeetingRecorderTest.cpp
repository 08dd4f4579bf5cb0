#include "Meetings/MeetingRecorder.h"

#include "Meetings/MeetingDesktop.h"

namespace mnemora::test {
namespace {

using Rows = std::vector<std::string>;

class MeetingRecorderTest : public MeetingTest {
  protected:
    void make() { recorder = std::make_shared<MeetingRecorder>(open()); }
    void startAll() {
        recorder->start();
        loop->runJobs();
    }
    static PcmBuffer sound(double mark) {
        return {.sampleRate = mark, .channels = 1, .samples = {}};
    }

    std::shared_ptr<MeetingRecorder> recorder;
    CapturedStderr log;
};

TEST_F(MeetingRecorderTest, StoresWhatBothSidesSayUnderOneKeyAndTitle) {
    make();
    time.clock->moment = 1'700'000'000.3;
    const auto title = "Meeting · " + time.clock->localized(time.clock->moment, DateStyle::medium,
                                                            DateStyle::shortStyle);
    startAll();
    recorder->start(); // is one already
    EXPECT_TRUE(recorder->isRecording());
    EXPECT_EQ(speech->recognizers.size(), 2U);
    EXPECT_EQ(input->frames, 2048);
    ASSERT_EQ(system->formats.size(), 1U);
    EXPECT_EQ(system->formats[0].sampleRate, 48000);
    EXPECT_EQ(system->formats[0].channels, 1);

    input->tap(sound(44100));
    system->sink(sound(48000));
    EXPECT_EQ(recognizer(2).last().buffers, std::vector<double>{44100});
    EXPECT_EQ(recognizer(1).last().buffers, std::vector<double>{48000});

    time.clock->moment += 4;
    youSay("Can you hear me?");
    time.clock->moment += 80'000; // past midnight
    theySay("Yes.");
    EXPECT_EQ(segments("ts, source, app, bundle, kind, person, title, url, body"),
              (Rows{"1700000004.3|audio|Meeting|1700000000|meeting|You|" + title +
                        "|NULL|Can you hear me?",
                    "1700080004.3|audio|Meeting|1700000000|meeting|Them|" + title + "|NULL|Yes."}));
    recorder->stop();
    EXPECT_EQ(log.text(), "[mnemora] meeting recording started (on-device)\n"
                          "[mnemora] meeting recording stopped\n");
}

TEST_F(MeetingRecorderTest, AnEchoWithinNinetySecondsIsOneSegment) {
    make();
    startAll();
    theySay("Good morning.");
    time.clock->moment += 89;
    youSay("Good morning.");
    EXPECT_EQ(segments(), Rows{"Them|Good morning."});
    time.clock->moment += 2;
    youSay("Good morning.");
    EXPECT_EQ(segments(), (Rows{"Them|Good morning.", "You|Good morning."}));
}

TEST_F(MeetingRecorderTest, RecordsWhatItCanWhenAPartIsMissing) {
    struct Case {
        const char* name;
        std::function<void()> arrange;
        const char* logged; // between the start and the stop line
        bool system;
    };
    const std::vector<Case> cases = {
        {"no microphone", [this] { input->failure = Failure{"no source"}; },
         "[mnemora][error] mic engine failed: no source\n", true},
        {"no output", [this] { system->output = false; }, "", false},
        {"no sound server", [this] { system->output = Failure{"refused"}; },
         "[mnemora][error] system-audio capture unavailable: refused\n", false},
        {"no capture", [this] { system->failure = "busy"; },
         "[mnemora][error] system-audio capture unavailable: busy\n", false},
        {"no recogniser", [this] { speech->pattern.available = false; }, "", true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        *input = {};
        *system = {};
        *speech = {};
        c.arrange();
        make();
        const CapturedStderr lines;
        startAll();
        EXPECT_TRUE(recorder->isRecording());
        EXPECT_EQ(*system->running, c.system ? 1 : 0);
        recorder->stop();
        EXPECT_EQ(*system->running, 0);
        EXPECT_EQ(lines.text(), "[mnemora] meeting recording started (on-device)\n" +
                                    std::string(c.logged) +
                                    "[mnemora] meeting recording stopped\n");
    }
}

TEST_F(MeetingRecorderTest, ADatabaseThatRefusesASegmentEndsNothing) {
    make();
    startAll();
    outside("CREATE TRIGGER full BEFORE INSERT ON events BEGIN "
            "SELECT RAISE(FAIL, 'database or disk is full'); END;");
    theySay("Lost.");
    outside("DROP TRIGGER full;");
    theySay("Kept.");
    EXPECT_TRUE(recorder->isRecording());
    EXPECT_EQ(segments("body"), Rows{"Kept."});
    recorder->stop();
}

TEST_F(MeetingRecorderTest, StopEndsEverythingAndDropsUnfinishedWords) {
    make();
    recorder->stop(); // idle: nothing happens
    EXPECT_EQ(log.text(), "");
    EXPECT_TRUE(input->calls.empty());

    startAll();
    const auto you = recognizer(2).requests.back();
    const auto sink = system->sink;
    recorder->stop();
    EXPECT_FALSE(recorder->isRecording());
    EXPECT_EQ(input->calls, (Rows{"tap", "start", "untap", "stop"}));
    EXPECT_EQ(you->calls, (Rows{"endAudio", "finish"}));
    EXPECT_FALSE(you->open);
    you->finalText("Half a sen");
    sink(sound(1)); // a buffer that was on its way
    EXPECT_EQ(segments(), Rows{});
}

TEST_F(MeetingRecorderTest, AStopDuringSetUpLeavesNoCaptureBehind) {
    make();
    recorder->start();
    recorder->stop();
    loop->runJobs(); // only now does the set-up run
    EXPECT_EQ(*system->running, 0);

    time.clock->moment += 10;
    recorder->start();
    recorder->stop();
    time.clock->moment += 10;
    startAll(); // the set-ups of two recordings, the first of them over
    EXPECT_EQ(*system->running, 1);
    system->sink(sound(7));
    EXPECT_EQ(recognizer(1).last().buffers, std::vector<double>{7});
    theySay("Second call.");
    EXPECT_EQ(segments("bundle, body"), Rows{"1700000020|Second call."});
    recorder->stop();
    EXPECT_EQ(*system->running, 0);
}

TEST_F(MeetingRecorderTest, BothPermissionsAreAskedAndNeeded) {
    for (const bool speaks : {false, true}) {
        for (const bool hears : {false, true}) {
            speech->authorized = speaks;
            input->granted = hears;
            input->calls.clear();
            std::vector<bool> answers;
            MeetingRecorder::requestPermissions([&](bool granted) { answers.push_back(granted); });
            EXPECT_EQ(answers, std::vector<bool>{speaks && hears});
            EXPECT_EQ(input->calls, Rows{"ask"});
        }
    }
    const ScopedDesktopServices none({});
    bool answer = true;
    MeetingRecorder::requestPermissions([&](bool granted) { answer = granted; });
    EXPECT_FALSE(answer);
}

} // namespace
} // namespace mnemora::test
