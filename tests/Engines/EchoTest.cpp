// Loudspeakers beside a microphone: the words that come back, and the sound.

#include "Engines/Speech/EchoCanceller.h"
#include "Engines/Speech/EchoWords.h"
#include "Engines/Speech/SoundMarks.h"
#include "Engines/Speech/SpeechSession.h"
#include "Engines/SpeechSamples.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>

namespace mnemora::engines::speech {
namespace {

TEST(EchoWords, TakesOutWhatWasPlayedAndLeavesWhatWasSaid) {
    constexpr auto* played = "We should move the meeting to Thursday afternoon.";
    const struct {
        const char* what;
        const char* heard;
        const char* played;
        const char* left;
    } table[] = {
        {"the same", "We should move the meeting to Thursday afternoon.", played, ""},
        {"badly understood", "we should move meetings to thirsty, after noon", played, ""},
        {"a part", "the meeting to Thursday", played, ""},
        {"a reply right after it", "We should move the meeting to Thursday afternoon. Yes.", played,
         "Yes."},
        {"a reply after a part", "to Thursday afternoon, that sounds good to me.", played,
         "that sounds good to me."},
        {"words before it", "I am not so sure. We should move the meeting to Thursday.", played,
         "I am not so sure."},
        {"something else", "The garden is full of flowers.", played,
         "The garden is full of flowers."},
        {"two words in common", "The meeting was long.", played, "The meeting was long."},
        {"a short echo", "Okay.", "Okay!", ""},
        {"a short word of many", "Thursday?", played, "Thursday?"},
        {"silence", "Hello there.", "", "Hello there."},
        {"nothing", "", played, ""},
    };
    for (const auto& row : table)
        EXPECT_EQ(withoutEcho(row.heard, row.played), row.left) << row.what;
}

TEST(SoundMarks, FindWhatCameAtTheSameTime) {
    SoundMarks microphone;
    SoundMarks loudspeakers;
    EXPECT_EQ(loudspeakers.positionAt(microphone.timeOf(100)), 0);
    for (std::uint64_t i = 0; i < 10; ++i) { // the loudspeakers began a second earlier
        const auto position = static_cast<std::int64_t>(i + 1) * 700;
        loudspeakers.add(2 * i + 1, 16000 + position);
        microphone.add(2 * i + 2, position);
    }
    EXPECT_EQ(loudspeakers.positionAt(microphone.timeOf(700)), 16700);
    EXPECT_EQ(loudspeakers.positionAt(microphone.timeOf(1000)), 17000);
    EXPECT_EQ(loudspeakers.positionAt(microphone.timeOf(9000)), 23000); // not heard yet
}

/// Speaks all the time.
struct TalkativeDetector : VoiceDetector {
    void accept(std::span<const float> window) override {
        heard += static_cast<std::int64_t>(window.size());
    }
    [[nodiscard]] bool isSpeaking() const override { return heard > 4000; }
    std::optional<Speech> next() override {
        return std::exchange(flushed, false) ? std::optional(Speech{0, heard}) : std::nullopt;
    }
    void flush() override { flushed = true; }
    void reset() override { heard = 0; }

    std::int64_t heard = 0;
    bool flushed = false;
};

/// Understands the same words in everything.
struct Parrot : Transcriber {
    std::string transcribe(std::span<const float> sound) override {
        longest = std::max(longest, sound.size());
        return "one two three four";
    }
    std::size_t longest = 0;
};

TEST(SpeechSession, AMicrophonesUtteranceIsComparedWithWhatLoudspeakersPlayedThen) {
    using enum SoundOrigin;
    for (const auto& [you, them, utterances] :
         {std::tuple(microphone, loudspeakers, 1), std::tuple(microphone, unknown, 2),
          std::tuple(unknown, loudspeakers, 2)}) {
        SpeechModels models;
        auto parrot = std::make_unique<Parrot>();
        const auto& heard = *parrot;
        models.transcriber = std::move(parrot);
        for (int i = 0; i < 2; ++i)
            models.detectors.push_back(std::make_unique<TalkativeDetector>());
        int count = 0;
        SpeechSession session(models, [&](FrameKind kind, const std::string&) {
            count += kind == FrameKind::utterance ? 1 : 0;
            return true;
        });
        const std::vector<float> piece(700);
        for (int i = 0; i < 50; ++i)
            for (const auto& [number, origin] : {std::pair(1U, you), std::pair(2U, them)})
                ASSERT_TRUE(session.take(
                    {FrameKind::sound, encodeSound({number, sampleRate, 1, piece, origin}), {}}));
        for (const auto number : {1U, 2U})
            ASSERT_TRUE(session.take({FrameKind::endOfSound, encodeStream(number), {}}));
        EXPECT_EQ(count, utterances);
        EXPECT_LE(heard.longest, 50U * 700 + windowSize);
    }
}

/// Understands nothing, and keeps what it heard last.
struct Deaf : Transcriber {
    std::string transcribe(std::span<const float> sound) override {
        ++count;
        last.assign(sound.begin(), sound.end());
        return " ";
    }
    int count = 0;
    std::vector<float> last;
};

TEST(SpeechSession, WhatIsKeptForTheEchoComesInItsPlaceWhenTheSoundEnds) {
    SpeechModels models;
    auto deaf = std::make_unique<Deaf>();
    const auto& heard = *deaf;
    models.transcriber = std::move(deaf);
    for (int i = 0; i < 2; ++i)
        models.detectors.push_back(std::make_unique<TalkativeDetector>());
    SpeechSession session(models, [](FrameKind, const std::string&) { return true; });
    std::vector<float> piece(4800); // a tenth of a second
    int at = 0;
    for (int i = 0; i < 20; ++i) {
        for (float& sample : piece)
            sample = static_cast<float>(0.5 * std::sin(at++ * 0.01));
        if (i == 0) { // and then the loudspeakers' device falls asleep
            const std::vector<float> silence(480);
            ASSERT_TRUE(
                session.take({FrameKind::sound,
                              encodeSound({2, 48000, 1, silence, SoundOrigin::loudspeakers}),
                              {}}));
        }
        ASSERT_TRUE(session.take(
            {FrameKind::sound, encodeSound({1, 48000, 1, piece, SoundOrigin::microphone}), {}}));
    }
    ASSERT_TRUE(session.take({FrameKind::endOfSound, encodeStream(1), {}}));
    EXPECT_EQ(heard.count, 1); // no words, so nothing to compare with what was played
    ASSERT_GE(heard.last.size(), 32000U);
    for (std::size_t i = 400; i < 31600; ++i)
        ASSERT_NEAR(heard.last[i], 0.5 * std::sin(static_cast<double>(i) * 0.03), 0.01) << i;
}

double powerOf(std::span<const float> sound) {
    double sum = 0;
    for (const float sample : sound)
        sum += static_cast<double>(sample) * static_cast<double>(sample);
    return sum;
}

TEST(EchoCanceller, LearnsTheRoomAndKeepsEverySampleInItsPlace) {
    auto played = test::pinkNoise(20, 0.1, 3).samples;
    for (std::size_t i = 0; i < played.size(); ++i) // as loud and quiet as syllables
        played[i] *= static_cast<float>(std::pow(std::sin(static_cast<double>(i) / 1300), 4));
    auto heard = test::pinkNoise(20, 0.0005, 9).samples;
    constexpr std::size_t way = 1600;
    for (std::size_t i = way; i < heard.size(); ++i)
        heard[i] += 0.3F * played[i - way];
    EchoCanceller canceller;
    std::vector<float> clean;
    constexpr std::size_t step = 683;
    for (std::size_t at = 0; at + step <= heard.size(); at += step) {
        canceller.played(std::span(played).subspan(at, step));
        const auto part = canceller.cleaned(std::span(heard).subspan(at, step));
        clean.insert(clean.end(), part.begin(), part.end());
    }
    const auto rest = canceller.finish();
    clean.insert(clean.end(), rest.begin(), rest.end());
    EXPECT_EQ(clean.size(), heard.size() / step * step);
    const auto second = std::size_t{16000};
    EXPECT_EQ(powerOf(std::span(clean).first(second)), powerOf(std::span(heard).first(second)));
    EXPECT_LT(powerOf(std::span(clean).last(3 * second)),
              0.05 * powerOf(std::span(heard).last(3 * second)));
}

TEST(EchoCanceller, LetsSoundThroughWhenNothingIsPlayedOrPlayedNoMore) {
    const auto heard = test::pinkNoise(3, 0.1, 4).samples;
    EchoCanceller canceller;
    canceller.played(std::vector<float>(8000)); // silence, then nothing
    auto through = canceller.cleaned(heard);
    EXPECT_LE(heard.size() - through.size(), 3200U);
    const auto rest = canceller.finish();
    through.insert(through.end(), rest.begin(), rest.end());
    EXPECT_EQ(through, heard);
    for (int i = 0; i < 100; ++i) // a microphone that has gone piles nothing up
        canceller.played(heard);
    EXPECT_LE(canceller.cleaned(heard).size(), heard.size());
}

} // namespace
} // namespace mnemora::engines::speech
