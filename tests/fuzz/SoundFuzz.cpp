// Fuzz target: sound of any kind from its arrival in the engine to the stretches that are
// recognised. No sample is recognised twice, and nothing is but sound that was there.

#include "Engines/Speech/SpeechSession.h"
#include "fuzz/FuzzInput.h"

#include <cmath>

namespace {

using namespace mnemora::engines;
using namespace mnemora::engines::speech;
using mnemora::fuzz::FuzzInput;
using mnemora::fuzz::require;

/// Calls every window speech whose first sample is loud.
class LoudnessDetector : public VoiceDetector {
  public:
    void accept(std::span<const float> window) override {
        require(window.size() == windowSize);
        for (const float sample : window)
            require(std::isfinite(sample));
        const bool loud = std::abs(window.front()) > 0.2F;
        if (loud && !from_)
            from_ = heard_;
        heard_ += static_cast<std::int64_t>(windowSize);
        if (!loud)
            flush();
    }
    [[nodiscard]] bool isSpeaking() const override { return from_.has_value(); }
    [[nodiscard]] std::optional<Speech> next() override {
        return std::exchange(ended_, std::nullopt);
    }
    void flush() override {
        if (from_)
            ended_ = {.start = *from_, .length = heard_ - *from_};
        from_.reset();
    }
    void reset() override {
        from_.reset();
        ended_.reset();
        heard_ = 0;
    }

  private:
    std::int64_t heard_ = 0;
    std::optional<std::int64_t> from_;
    std::optional<Speech> ended_;
};

class CountingTranscriber : public Transcriber {
  public:
    std::string transcribe(std::span<const float> sound) override {
        require(sound.size() <= static_cast<std::size_t>(sampleRate) * 15);
        return sound.empty() ? "" : "words";
    }
};

/// Samples from few bytes: each pair is a value and how long it lasts.
std::vector<float> samples(FuzzInput& input, std::uint32_t channels) {
    std::vector<float> all;
    const std::size_t runs = input.byte() % 16;
    for (std::size_t run = 0; run < runs; ++run) {
        const float value = (static_cast<float>(input.byte()) - 128.0F) / 100.0F;
        all.insert(all.end(), std::size_t{input.byte()} * 16 * channels, value);
    }
    return all;
}

std::string soundPayload(FuzzInput& input) {
    constexpr double rates[] = {8000, 16000, 22050, 44100, 48000, 192000, 384000, 11025.5};
    const std::uint32_t channels = 1U + input.byte() % 4;
    const auto sound = samples(input, channels);
    return encodeSound({.stream = input.byte() % 3U,
                        .sampleRate = rates[input.byte() % std::size(rates)],
                        .channels = channels,
                        .samples = sound});
}

Frame nextFrame(FuzzInput& input) {
    Frame frame;
    switch (input.byte() % 8) {
    case 0:
        frame.kind = FrameKind::endOfSound;
        frame.payload = encodeStream(input.byte() % 3U);
        break;
    case 1:
        frame.kind = FrameKind::closeStream;
        frame.payload = encodeStream(input.byte() % 3U);
        break;
    case 2:
        frame.kind = static_cast<FrameKind>(input.byte());
        frame.payload = input.text();
        break;
    default:
        frame.kind = FrameKind::sound;
        frame.payload = soundPayload(input);
    }
    return frame;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    SpeechModels models;
    models.transcriber = std::make_unique<CountingTranscriber>();
    for (std::size_t i = 0; i < 2; ++i)
        models.detectors.push_back(std::make_unique<LoudnessDetector>());
    std::map<StreamNumber, double> endOf;
    SpeechSession session(models, [&](FrameKind kind, const std::string& payload) {
        if (kind != FrameKind::utterance)
            return true;
        const auto utterance = decodeUtterance(payload);
        require(utterance.has_value());
        return true;
    });
    while (!input.empty() && session.take(nextFrame(input))) {
    }
    return 0;
}
