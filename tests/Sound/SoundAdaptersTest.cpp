// Runs inside scripts/audio-session, once for each sound server.

#include "Linux/Sound/PulseAudioInput.h"
#include "Linux/Sound/PulseSystemAudio.h"
#include "Sound/SoundSession.h"
#include "Support/FileDescriptor.h"
#include "fakes/CapturedStderr.h"
#include "fakes/FakeDesktop.h"
#include "fakes/ProcessUse.h"
#include "fakes/ScopedVariable.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>

namespace mnemora::test {
namespace {

constexpr double low = 440;   // what the user says
constexpr double high = 1250; // what the others say
constexpr double other = 2000;

class SoundAdaptersTest : public testing::Test {
  protected:
    void TearDown() override {
        microphone.stop();
        capture.reset();
    }
    void listen() {
        microphone.installTap(2048, [this](const PcmBuffer& buffer) { you.hear(buffer); });
        const auto failure = microphone.start();
        EXPECT_FALSE(failure) << failure->description;
        auto started = system.start({}, [this](const PcmBuffer& buffer) { them.hear(buffer); });
        ASSERT_TRUE(started) << started.description();
        capture = *started;
    }
    bool access() {
        std::optional<bool> answer;
        microphone.requestAccess([&](bool granted) { answer = granted; });
        loop->runJobs();
        return answer.value();
    }
    static void makeMicrophone() {
        shell("pactl load-module module-remap-source source_name=Mic master=MicFeed.monitor "
              "channels=1 master_channel_map=front-left channel_map=mono");
        EXPECT_TRUE(eventually([] {
            shell("pactl set-default-source Mic 2>&1");
            return shell("pactl get-default-source") == "Mic";
        }));
    }
    /// A second one, which hears what is played on OtherFeed; the number of its module.
    static std::string makeOther() {
        shell("pactl list short sinks | grep -q OtherFeed || "
              "pactl load-module module-null-sink sink_name=OtherFeed rate=48000");
        EXPECT_TRUE(
            eventually([] { return !shell("pactl list short sources | grep OtherFeed").empty(); }));
        return shell("pactl load-module module-remap-source source_name=Other "
                     "master=OtherFeed.monitor channels=2 remix=no");
    }
    static void unplugMicrophone() {
        shell("pactl list short modules | grep 'source_name=Mic' | cut -f1 | "
              "xargs -n1 pactl unload-module");
    }

    std::shared_ptr<FakeMainLoop> loop = std::make_shared<FakeMainLoop>();
    Listener you;
    Listener them;
    pulse::PulseAudioInput microphone{loop};
    pulse::PulseSystemAudio system;
    std::shared_ptr<SystemAudioCapture> capture;
};

TEST_F(SoundAdaptersTest, EachSideHearsItsOwnSoundOnly) {
    EXPECT_TRUE(access());
    EXPECT_TRUE(*system.hasOutput());
    const Tone user("MicFeed", low);
    const Tone others("Speakers", high);
    listen();
    EXPECT_TRUE(eventually([&] { return you.hears(low) && them.hears(high); }));
    EXPECT_FALSE(you.hears(high));
    EXPECT_FALSE(them.hears(low));
    EXPECT_EQ(you.last().sampleRate, 48000);
    EXPECT_EQ(you.last().channels, 1); // as the device has it
    EXPECT_EQ(them.last().sampleRate, 48000);
    EXPECT_EQ(them.last().channels, 1); // of two, downmixed
    EXPECT_LE(you.last().frames(), 4096U);
    EXPECT_GE(you.last().frames(), 256U);
}

TEST_F(SoundAdaptersTest, SystemAudioFollowsTheDefaultOutput) {
    const Tone call("Speakers", low); // a player on the default sink moves along with it
    listen();
    EXPECT_TRUE(eventually([&] { return them.hears(low); }));
    EXPECT_EQ(them.last().origin, SoundOrigin::loudspeakers);
    const auto headset = shell("pactl load-module module-null-sink sink_name=Headset rate=44100 "
                               "sink_properties=device.form_factor=headset");
    EXPECT_TRUE(eventually([] { return !shell("pactl list short sinks | grep Headset").empty(); }));
    shell("pactl set-default-sink Headset");
    {
        const Tone onHeadset("Headset", high);
        EXPECT_TRUE(eventually([&] { return them.hears(high); }));
        EXPECT_EQ(them.last().origin, SoundOrigin::unknown); // nobody else hears it
        const Tone leftBehind("Speakers", other);
        them.forget();
        EXPECT_TRUE(eventually([&] { return them.buffers() > 20 && them.hears(high); }));
        EXPECT_FALSE(them.hears(other));
    }
    shell("pactl unload-module " + headset); // pulled out
    EXPECT_TRUE(eventually([&] { return !them.hears(high) && them.hears(low); }));
}

TEST_F(SoundAdaptersTest, OthersNeverSpeakAsTheUserWhenTheMicrophoneIsUnplugged) {
    const Tone user("MicFeed", low);
    const Tone others("Speakers", high);
    listen();
    EXPECT_TRUE(eventually([&] { return you.hears(low); }));
    unplugMicrophone();
    EXPECT_TRUE(eventually(
        [] { return shell("pactl list short sources | cut -f2 | grep -x Mic").empty(); }));
    // Whatever the server takes for the default source now, only an output's monitor is left.
    you.forget();
    them.forget();
    EXPECT_TRUE(eventually([&] { return them.buffers() > 40; }));
    EXPECT_FALSE(you.hears(high));
    {
        const CapturedStderr log;
        EXPECT_FALSE(access());
        EXPECT_EQ(log.text(), "[mnemora][error] microphone refused: no microphone\n");
    }
    const CapturedStderr late;
    pulse::PulseAudioInput another(loop);
    if (const auto failure = another.start())
        EXPECT_EQ(failure->description, "no microphone");
    else
        EXPECT_TRUE(eventually([&] {
            return late.text() == "[mnemora][error] mic engine failed: no microphone\n";
        })) << late.text();
    makeMicrophone(); // plugged in again, for both
    EXPECT_TRUE(eventually([&] { return you.hears(low); }));
    EXPECT_TRUE(access());
}

TEST_F(SoundAdaptersTest, SoundComesBackAfterTheServerDied) {
    listen();
    EXPECT_TRUE(eventually([&] { return you.buffers() > 0 && them.buffers() > 0; }));
    shell(std::string(AUDIO_SESSION_SCRIPT) + " --restart 2>&1");
    const Tone user("MicFeed", low);
    const Tone others("Speakers", high);
    EXPECT_TRUE(eventually([&] { return you.hears(low) && them.hears(high); }));
    EXPECT_FALSE(you.hears(high));
}

TEST_F(SoundAdaptersTest, AnotherMicrophoneIsFollowed) {
    listen();
    const Tone user("MicFeed", low);
    EXPECT_TRUE(eventually([&] { return you.hears(low); }));
    EXPECT_EQ(you.last().origin, SoundOrigin::microphone);
    const auto second = makeOther();
    const Tone onOther("OtherFeed", other);
    EXPECT_TRUE(eventually([&] {
        shell("pactl set-default-source Other 2>&1");
        return you.hears(other);
    }));
    EXPECT_TRUE(eventually([&] { return !you.hears(low); }));
    EXPECT_EQ(you.last().channels, 2); // as this device has it
    shell("pactl unload-module " + second + "; pactl set-default-source Mic");
    EXPECT_TRUE(eventually([&] { return you.hears(low) && !you.hears(other); }));
}

TEST_F(SoundAdaptersTest, AChangeIsFollowedWhileOtherProgramsConnect) {
    listen();
    const Tone user("MicFeed", low);
    const auto second = makeOther();
    EXPECT_TRUE(eventually(
        [] { return !shell("pactl list short sources | cut -f2 | grep -x Other").empty(); }));
    const Tone onOther("OtherFeed", other);
    {
        const auto connect = [](const std::stop_token& over) {
            while (!over.stop_requested())
                shell("pactl info >/dev/null");
        };
        const std::jthread crowd[] = {std::jthread(connect), std::jthread(connect),
                                      std::jthread(connect)};
        for (int i = 0; i < 10; ++i) {
            shell("pactl set-default-source Other");
            EXPECT_TRUE(eventually([&] { return you.hears(other) && !you.hears(low); }));
            shell("pactl set-default-source Mic");
            EXPECT_TRUE(eventually([&] { return you.hears(low) && !you.hears(other); }));
        }
    }
    shell("pactl unload-module " + second);
}

TEST_F(SoundAdaptersTest, AnInterfaceOfManyChannelsIsHeard) {
    const std::string map = "aux0,aux1,aux2,aux3,aux4,aux5,aux6,aux7,aux8,aux9";
    shell("pactl load-module module-null-sink sink_name=Inputs channels=10 channel_map=" + map);
    EXPECT_TRUE(
        eventually([] { return !shell("pactl list short sources | grep Inputs").empty(); }));
    const auto interface = shell("pactl load-module module-remap-source source_name=Interface "
                                 "master=Inputs.monitor channels=10 remix=no channel_map=" +
                                 map + " master_channel_map=" + map);
    EXPECT_TRUE(eventually([] {
        shell("pactl set-default-source Interface 2>&1");
        return shell("pactl get-default-source") == "Interface";
    }));
    EXPECT_TRUE(access());
    listen();
    EXPECT_TRUE(eventually([&] { return you.buffers() > 0 && you.last().channels == 10; }));
    shell("pactl unload-module " + interface + "; pactl set-default-source Mic");
}

TEST_F(SoundAdaptersTest, NothingIsHeardAfterTheEnd) {
    std::atomic<bool> ended = false;
    for (int i = 0; i < 25; ++i) {
        ended = false;
        microphone.installTap(2048, [&](const PcmBuffer& buffer) {
            EXPECT_FALSE(ended);
            you.hear(buffer);
        });
        EXPECT_FALSE(microphone.start());
        if (i % 5 == 0) {
            you.forget();
            EXPECT_TRUE(eventually([&] { return you.buffers() > 0; }));
        }
        microphone.removeTap();
        ended = true;
        microphone.stop();
    }
    EXPECT_TRUE(eventually([] { return ourStreams() == 0; }));
}

TEST_F(SoundAdaptersTest, TheLastOwnerMayLetGoInsideTheSink) {
    struct Shared { // outlives the last call of the sink
        std::atomic<bool> gone = false;
        std::mutex mutex;
        std::shared_ptr<SystemAudioCapture> owner; // guarded by mutex
    };
    const auto shared = std::make_shared<Shared>();
    auto started = system.start({}, [shared](const PcmBuffer&) {
        const std::lock_guard lock(shared->mutex);
        if (shared->owner) {
            shared->owner.reset();
            shared->gone = true;
        }
    });
    ASSERT_TRUE(started);
    {
        const std::lock_guard lock(shared->mutex);
        shared->owner = std::move(*started);
    }
    EXPECT_TRUE(eventually([&] { return shared->gone.load(); }));
    EXPECT_TRUE(eventually([] { return ourStreams() == 0; }));
}

TEST_F(SoundAdaptersTest, WithoutAServerEveryAnswerHasItsReason) {
    const ScopedVariable nowhere("PULSE_SERVER", "unix:/nonexistent/native");
    const CapturedStderr log;
    EXPECT_FALSE(access());
    EXPECT_EQ(log.text(), "[mnemora][error] microphone refused: Connection refused\n");
    const auto failure = microphone.start();
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->description, "Connection refused");
    EXPECT_EQ(system.hasOutput().description(), "Connection refused");
    EXPECT_EQ(system.start({}, nullptr).description(), "Connection refused");
}

/// The sound server of the session, standing still.
class StoppedServer {
  public:
    StoppedServer() { signal("STOP"); }
    ~StoppedServer() { signal("CONT"); }
    StoppedServer(const StoppedServer&) = delete;
    StoppedServer& operator=(const StoppedServer&) = delete;

  private:
    static void signal(const std::string& name) {
        shell("kill -" + name + " $(cat \"$AUDIO_SESSION\"/*.pid)");
    }
};

TEST_F(SoundAdaptersTest, AServerThatHangsInMidRecordingHoldsNobodyUpAndIsHeardAgain) {
    const Tone user("MicFeed", low);
    const Tone others("Speakers", high);
    listen(); // what the library starts once stays
    microphone.stop();
    capture.reset();
    EXPECT_TRUE(eventually([] { return ourStreams() == 0; }));
    auto before = ProcessUse::now();
    LongestWait longest;
    listen();
    EXPECT_TRUE(eventually([&] { return you.hears(low) && them.hears(high); }));
    {
        const StoppedServer stopped;
        pulse::PulseAudioInput another(loop);
        (void)longest([&] { return another.start(); });
        longest([&] { another.stop(); });
        you.forget();
        them.forget();
    }
    EXPECT_TRUE(eventually([&] { return you.hears(low) && them.hears(high); }));
    {
        const StoppedServer stopped;
        longest([&] { microphone.removeTap(); });
        longest([&] { microphone.stop(); });
        longest([&] { capture.reset(); });
    }
    RecordProperty("longest_ms", std::to_string(longest.longest().count()));
    EXPECT_LT(longest.longest(), std::chrono::milliseconds(400)) << "the main thread's bound is 50";
    EXPECT_TRUE(eventually([] { return ourStreams() == 0; }));
    EXPECT_TRUE(before.comesBack()) << before << " before, " << ProcessUse::now() << " after";
}

TEST_F(SoundAdaptersTest, AServerThatFloodsWithChangesLeavesOneStreamOfEachSide) {
    const Tone user("MicFeed", low);
    listen();
    EXPECT_TRUE(eventually([&] { return you.hears(low); }));
    shell("for i in $(seq 60); do pactl set-default-source MicFeed.monitor; "
          "pactl set-source-volume Mic $((50 + i))%; pactl set-default-source Mic; done");
    you.forget();
    EXPECT_TRUE(eventually([&] { return you.hears(low) && ourStreams() == 2; })) << ourStreams();
    shell("pactl set-source-volume Mic 100%");
}

TEST_F(SoundAdaptersTest, AServerThatNeverAnswersHoldsNobodyUp) {
    const auto path = std::string(std::getenv("AUDIO_SESSION")) + "/mute";
    const FileDescriptor mute(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(mute.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(mute.get(), 4), 0);
    const ScopedVariable server("PULSE_SERVER", "unix:" + path);
    EXPECT_FALSE(microphone.start()); // unknown yet, so no failure to tell
    microphone.stop();
    EXPECT_EQ(system.hasOutput().description(), "the sound server doesn't answer");
    const CapturedStderr log;
    EXPECT_FALSE(access());
    EXPECT_EQ(log.text(), "[mnemora][error] microphone refused: the sound server doesn't answer\n");
}

} // namespace
} // namespace mnemora::test
