// Two people on a call: real sound, the real recogniser, the store. Runs inside
// scripts/audio-session.

#include "Engines/SpeechSamples.h"
#include "Linux/Engines/EngineSpeechService.h"
#include "Linux/Sound/PulseAudioInput.h"
#include "Linux/Sound/PulseSystemAudio.h"
#include "Meetings/MeetingCoordinator.h"
#include "Meetings/MeetingSession.h"
#include "Sound/SoundSession.h"
#include "Store/StoreFixture.h"
#include "Tools/FileTranscriber.h"

#include <QCoreApplication>
#include <algorithm>
#include <atomic>
#include <fstream>
#include <thread>

namespace mnemora::test {
namespace {

using namespace std::chrono_literals;

bool eventuallyOnMainThread(const std::function<bool()>& condition) {
    return FileTranscriber::waitUntil(condition, 60s);
}

/// A file of raw samples with somebody's words, and the player's options for it.
std::string spoken(const char* voice, const std::string& words) {
    const auto sound = speak({Voice::Maker::flite, voice}, words);
    if (!sound)
        return {};
    const auto path = std::string(std::getenv("AUDIO_SESSION")) + "/" + voice;
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(sound->samples.data()),
               static_cast<std::streamsize>(sound->samples.size() * sizeof(float)));
    return "--raw --format=float32le --channels=1 --rate=" +
           std::to_string(static_cast<int>(sound->sampleRate)) + " " + path;
}

/// The computer's output, counted in frames.
struct CountedSystemAudio : pulse::PulseSystemAudio {
    std::shared_ptr<std::atomic<size_t>> frames = std::make_shared<std::atomic<size_t>>(0);

    Outcome<std::shared_ptr<SystemAudioCapture>>
    start(const Format& format, std::function<void(const PcmBuffer&)> sink) override {
        return PulseSystemAudio::start(format, [count = frames, sink](const PcmBuffer& buffer) {
            *count += buffer.frames();
            sink(buffer);
        });
    }
};

class ConversationTest : public StoreTest {
  protected:
    void SetUp() override {
        if (user.empty() || other.empty())
            GTEST_SKIP() << "no synthesiser";
        store = &open();
        coordinator = std::make_shared<MeetingCoordinator>(*store);
    }
    void record() {
        coordinator->beginRecording();
        ASSERT_TRUE(eventuallyOnMainThread([&] { return coordinator->recorder().isRecording(); }));
        // PulseAudio's null sink has by then sent out the two seconds that it had mixed in advance.
        ASSERT_TRUE(eventuallyOnMainThread([&] { return *system->frames > 3 * 48'000; }));
    }
    static void play(const char* sink, const std::string& sound) {
        shell(std::string("pacat --playback --latency-msec=50 --device=") + sink + " " + sound);
    }
    /// The sink's sound in the microphone too, as from loudspeakers beside it: later and quieter.
    static void connectLoudspeakers() {
        const auto loopback = shell("pactl load-module module-loopback source=Speakers.monitor "
                                    "sink=MicFeed latency_msec=60");
        ASSERT_FALSE(loopback.empty());
        // Of the server's cubic scale: 13 dB less.
        const auto quieter =
            "pactl list sink-inputs | awk '/^Sink Input/ {id = substr($3, 2)} /Owner Module: " +
            loopback + "$/ {print id}' | xargs -I{} pactl set-sink-input-volume {} 60%";
        EXPECT_TRUE(eventually([&] {
            return shell("pactl list sink-inputs | grep -c 'Owner Module: " + loopback + "'") ==
                   "1";
        }));
        shell(quieter);
    }
    /// What a speaker said, in lower case.
    [[nodiscard]] std::string saidBy(const std::string& speaker) const {
        std::string all;
        for (const auto& meeting : meetings)
            for (const auto& line : meeting.lines)
                if (line.speaker == speaker)
                    all += line.text + " ";
        std::ranges::transform(all, all.begin(), [](unsigned char letter) {
            return static_cast<char>(std::tolower(letter));
        });
        return all;
    }

    const std::string user = spoken("slt", "The garden is full of yellow flowers this morning.");
    const std::string other = spoken("rms", "We should move the meeting to Thursday afternoon.");
    int count = 0;
    QCoreApplication application{count, nullptr};
    std::shared_ptr<CountedSystemAudio> system = std::make_shared<CountedSystemAudio>();
    std::shared_ptr<desktop::QtMainLoop> loop = std::make_shared<desktop::QtMainLoop>();
    ScopedDesktopServices installed{{.mainLoop = loop,
                                     .audioInput = std::make_shared<pulse::PulseAudioInput>(loop),
                                     .systemAudio = system,
                                     .speech = std::make_shared<EngineSpeechService>(
                                         SpeechEngineSettings::ofInstallation(), loop)}};
    MnemoraStore* store = nullptr;
    std::shared_ptr<MeetingCoordinator> coordinator;
    std::vector<MeetingSession> meetings;
};

TEST_F(ConversationTest, WhatTwoPeopleSayAtOnceIsStoredUnderTheirOwnNames) {
    record();
    EXPECT_EQ(ourStreams(), 2);
    const std::jthread players([&] {
        shell("pacat --playback --device=MicFeed " + user +
              " & pacat --playback --device=Speakers " + other + "; wait");
    });
    EXPECT_TRUE(eventuallyOnMainThread([&] {
        meetings = loadMeetingSessions(*store);
        return saidBy("You").find("flowers") != std::string::npos &&
               saidBy("Them").find("thursday") != std::string::npos;
    })) << "You: "
        << saidBy("You") << "Them: " << saidBy("Them");
    EXPECT_EQ(meetings.size(), 1U);
    EXPECT_EQ(saidBy("You").find("meeting"), std::string::npos);
    EXPECT_EQ(saidBy("Them").find("garden"), std::string::npos);
    coordinator->recorder().stop();
    EXPECT_TRUE(eventuallyOnMainThread([] { return ourStreams() == 0; }));
}

TEST_F(ConversationTest, WhatComesBackFromTheLoudspeakersIsntTheUsers) {
    connectLoudspeakers();
    record();
    const auto isStored = [&](const char* speaker, const char* word) {
        return eventuallyOnMainThread([&] {
            meetings = loadMeetingSessions(*store);
            return saidBy(speaker).find(word) != std::string::npos;
        });
    };
    {
        const std::jthread player([&] { play("Speakers", other); });
        EXPECT_TRUE(isStored("Them", "thursday")) << saidBy("Them");
    }
    {
        const std::jthread player([&] { play("MicFeed", user); });
        EXPECT_TRUE(isStored("You", "flowers")) << saidBy("You");
    }
    // What the microphone heard before has been recognised by now.
    EXPECT_EQ(saidBy("You").find("meeting"), std::string::npos) << saidBy("You");
    coordinator->recorder().stop();
}

} // namespace
} // namespace mnemora::test
