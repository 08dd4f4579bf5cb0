// Cutting sound into utterances, changing its rate, and the frames that carry both.

#include "Engines/Speech/Resampler.h"
#include "Engines/Speech/UtteranceCutter.h"
#include "Engines/SpeechSamples.h"

#include <algorithm>
#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>

namespace mnemora::engines::speech {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::int64_t second = sampleRate;

/// Hears speech exactly where it is told to, and tells as late as the real one does.
struct ScriptedDetector : VoiceDetector {
    explicit ScriptedDetector(std::vector<Speech> script) : speeches(std::move(script)) {}

    void accept(std::span<const float> window) override {
        EXPECT_EQ(window.size(), windowSize);
        heard += static_cast<std::int64_t>(window.size());
    }
    [[nodiscard]] bool isSpeaking() const override {
        return std::ranges::any_of(speeches, [&](const auto& speech) {
            return heard >= speech.start + shortestSpeech && heard < speech.start + speech.length;
        });
    }
    std::optional<Speech> next() override {
        if (speeches.empty() ||
            (!flushed && heard < speeches.front().start + speeches.front().length + second / 2))
            return std::nullopt;
        const auto speech = speeches.front();
        speeches.erase(speeches.begin());
        return speech;
    }
    void flush() override { flushed = true; }
    void reset() override {}

    std::vector<Speech> speeches;
    std::int64_t heard = 0;
    bool flushed = false;
};

struct Piece {
    std::int64_t from;
    std::int64_t to;
    bool operator==(const Piece&) const = default;
};

/// Each sample of the sound is its own position, so that a piece shows where it was cut.
std::vector<Piece> cut(std::vector<VoiceDetector::Speech> script, std::int64_t length,
                       std::size_t step, std::int64_t quietAt = -1) {
    ScriptedDetector detector(std::move(script));
    std::vector<Piece> pieces;
    UtteranceCutter cutter(detector, [&](std::int64_t from, std::span<const float> sound) {
        const auto middle = static_cast<std::int64_t>(sound.size() / 2);
        EXPECT_EQ(sound[sound.size() / 2], static_cast<float>(from + middle));
        pieces.push_back({from, from + static_cast<std::int64_t>(sound.size())});
    });
    std::vector<float> sound(static_cast<std::size_t>(length));
    for (std::size_t i = 0; i < sound.size(); ++i)
        sound[i] = static_cast<float>(i);
    if (quietAt >= 0)
        std::fill_n(sound.begin() + quietAt, 1600, 0.0F);
    for (std::size_t at = 0; at < sound.size(); at += step)
        cutter.append(std::span(sound).subspan(at, std::min(step, sound.size() - at)));
    cutter.finish();
    return pieces;
}

TEST(UtteranceCutter, KeepsATenthOfASecondAroundSpeechWithoutOverlap) {
    for (const std::size_t step : {100U, 512U, 1365U, 40000U}) {
        EXPECT_THAT(cut({{2 * second, second}, {6 * second, 2 * second}}, 10 * second, step),
                    ElementsAre(Piece{2 * second - 1600, 3 * second + 1600},
                                Piece{6 * second - 1600, 8 * second + 1600}))
            << step;
        EXPECT_THAT(cut({{0, second}, {second + 800, second}}, 4 * second, step),
                    ElementsAre(Piece{0, second + 1600}, Piece{second + 1600, 2 * second + 2400}))
            << step;
    }
}

TEST(UtteranceCutter, EndsSpeechThatGoesOnWhenTheSoundEnds) {
    const auto pieces = cut({{second, second}}, 2 * second, 1000);
    ASSERT_EQ(pieces.size(), 1U);
    EXPECT_EQ(pieces[0].from, second - 1600);
    EXPECT_GE(pieces[0].to, 2 * second);
}

TEST(UtteranceCutter, CutsLongSpeechWhereItIsQuietestAndTakesNothingTwice) {
    const auto quietAt = 12 * second;
    const auto pieces = cut({{second, 30 * second}}, 33 * second, 777, quietAt);
    ASSERT_GE(pieces.size(), 3U);
    EXPECT_NEAR(static_cast<double>(pieces[0].to), static_cast<double>(quietAt + 800), 160);
    EXPECT_LE(pieces[0].from, second);
    EXPECT_EQ(pieces.back().to, 31 * second + 1600);
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        EXPECT_LE(pieces[i].to - pieces[i].from, 15 * second);
        if (i > 0) {
            EXPECT_EQ(pieces[i].from, pieces[i - 1].to);
        }
    }
}

/// Remembers how loud its sound was.
struct PeakMeter : VoiceDetector {
    void accept(std::span<const float> window) override { last = std::ranges::max(window); }
    [[nodiscard]] bool isSpeaking() const override { return false; }
    std::optional<Speech> next() override { return std::nullopt; }
    void flush() override {}
    void reset() override {}

    float last = 0;
};

TEST(UtteranceCutter, RaisesQuietSoundForTheDetectorAlone) {
    PeakMeter detector;
    UtteranceCutter cutter(detector, [](std::int64_t, std::span<const float>) {});
    const struct {
        const char* what;
        float peak;
        double seconds;
        float lowest;
        float highest;
    } table[] = {{"a microphone turned down", 0.03F, 1, 0.3F, 0.3F},
                 {"one that is hardly open", 0.001F, 1, 0.01F, 0.01F},
                 {"an ordinary one, at once", 0.4F, 0.04, 0.4F, 0.4F},
                 {"a pause between words", 0.03F, 1, 0.03F, 0.04F},
                 {"somebody else, a while later", 0.03F, 30, 0.29F, 0.31F}};
    for (const auto& row : table) {
        cutter.append(
            std::vector<float>(static_cast<std::size_t>(row.seconds * sampleRate), row.peak));
        EXPECT_GE(detector.last, row.lowest * 0.999F) << row.what;
        EXPECT_LE(detector.last, row.highest * 1.001F) << row.what;
    }
    const auto position = cutter.position();
    EXPECT_EQ(cutter.remembered(position - 1, position)[0], 0.03F); // as it came
}

SoundPiece pieceOf(const PcmBuffer& sound, std::size_t frame, std::size_t count) {
    const auto channels = static_cast<std::size_t>(sound.channels);
    return {1, sound.sampleRate, static_cast<std::uint32_t>(sound.channels),
            std::span(sound.samples).subspan(frame * channels, count * channels)};
}

TEST(Resampler, KeepsPitchAndLengthWhateverThePieces) {
    for (const double rate : {8000.0, 16000.0, 44100.0, 48000.0, 192000.0})
        for (const int channels : {1, 2, 6}) {
            PcmBuffer tone{.sampleRate = rate, .channels = 1, .samples = {}};
            for (int i = 0; i < static_cast<int>(rate); ++i)
                tone.samples.push_back(static_cast<float>(0.5 * std::sin(i * 2765.0 / rate)));
            const auto sound = test::inChannels(tone, channels);
            Resampler resampler;
            std::vector<float> output;
            for (std::size_t at = 0; at < sound.frames(); at += 777) {
                const auto part = resampler.convert(
                    pieceOf(sound, at, std::min<std::size_t>(777, sound.frames() - at)));
                output.insert(output.end(), part.begin(), part.end());
            }
            const auto rest = resampler.finish();
            output.insert(output.end(), rest.begin(), rest.end());
            ASSERT_NEAR(static_cast<double>(output.size()), sampleRate, 2) << rate;
            // At both ends the filter sees the silence around the sound.
            for (std::size_t i = 400; i + 400 < output.size(); ++i)
                ASSERT_NEAR(output[i], 0.5 * std::sin(static_cast<double>(i) * 2765 / sampleRate),
                            0.01)
                    << rate << " Hz, " << channels << " channels, sample " << i;
        }
}

TEST(Resampler, LosesNothingWhenTheRateChanges) {
    Resampler resampler;
    std::size_t count = 0;
    for (const double rate : {48000.0, 16000.0, 44100.0}) {
        const auto sound = test::silence(1, rate);
        count += resampler.convert(pieceOf(sound, 0, sound.frames())).size();
    }
    count += resampler.finish().size();
    EXPECT_NEAR(static_cast<double>(count), 3.0 * sampleRate, 4);
}

TEST(SpeechFrames, RefuseWhatIsNoSound) {
    const std::vector<float> samples{0.5F, std::numeric_limits<float>::quiet_NaN(), -9, 1};
    std::vector<float> decoded;
    const auto payload = encodeSound({7, 48000, 2, samples});
    const auto piece = decodeSound(payload, decoded);
    ASSERT_TRUE(piece);
    EXPECT_EQ(piece->stream, 7U);
    EXPECT_THAT(decoded, ElementsAre(0.5F, 0, -1, 1));

    EXPECT_FALSE(decodeSound(payload.substr(0, 12), decoded));
    EXPECT_FALSE(decodeSound(payload.substr(0, payload.size() - 4), decoded)) << "half a frame";
    EXPECT_FALSE(decodeSound(encodeSound({7, 48000, 0, samples}), decoded));
    EXPECT_FALSE(decodeSound(encodeSound({7, 48000, 0x80000001U, samples}), decoded));
    EXPECT_FALSE(decodeSound(encodeSound({7, 1e300, 1, samples}), decoded));
    EXPECT_FALSE(decodeSound(encodeSound({7, std::nan(""), 1, samples}), decoded));
}

TEST(SpeechFrames, RefuseUtterancesOutOfTime) {
    const Utterance said{3, 1.5, 2.5, "Hello."};
    EXPECT_EQ(decodeUtterance(encodeUtterance(said)), said);
    EXPECT_FALSE(decodeUtterance(encodeUtterance({3, 2, 1, ""})));
    EXPECT_FALSE(decodeUtterance(encodeUtterance({3, -1, 1, ""})));
    EXPECT_FALSE(decodeUtterance(encodeUtterance({3, 0, std::nan(""), ""})));
    EXPECT_FALSE(decodeUtterance("short"));
}

} // namespace
} // namespace mnemora::engines::speech
