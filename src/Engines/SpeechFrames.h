#pragma once
// What the frames of speech recognition carry. Sound goes to the child as it comes from the
// device; each source of sound is a stream with a number, chosen by the parent and never used
// twice in the life of a child.

#include "Platform/SpeechRecognizer.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace mnemora::engines {

using StreamNumber = std::uint32_t;

/// A stretch of a stream's sound: interleaved samples.
struct SoundPiece {
    StreamNumber stream = 0;
    double sampleRate = 0;
    std::uint32_t channels = 0;
    std::span<const float> samples;
    SoundOrigin origin = SoundOrigin::unknown;
};

/// Something that was said, with its place in the stream's sound in seconds.
struct Utterance {
    StreamNumber stream = 0;
    double start = 0;
    double end = 0;
    std::string text;

    bool operator==(const Utterance&) const = default;
};

/// Rates from 8 to 384 kHz and 1 to 32 channels: what sound servers know.
[[nodiscard]] bool isPossibleSound(double sampleRate, int channels);

[[nodiscard]] std::string encodeSound(const SoundPiece& piece);
/// A piece whose samples are a copy in `samples`. Absent when the payload isn't whole frames of a
/// possible sound of a known origin; samples that are no numbers have become silence, too loud ones
/// full scale.
[[nodiscard]] std::optional<SoundPiece> decodeSound(std::string_view payload,
                                                    std::vector<float>& samples);

/// For the frames that say nothing but which stream they mean.
[[nodiscard]] std::string encodeStream(StreamNumber stream);
[[nodiscard]] std::optional<StreamNumber> decodeStream(std::string_view payload);

[[nodiscard]] std::string encodeUtterance(const Utterance& utterance);
/// Absent when the payload is too short or its times are no times. The text may be any bytes.
[[nodiscard]] std::optional<Utterance> decodeUtterance(std::string_view payload);

} // namespace mnemora::engines
