#pragma once
// What speech recognition needs of its networks. Abstract so that the cutting of sound into
// utterances is tested without them; the real ones are loaded by loadSherpaModels().

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace mnemora::engines::speech {

/// Samples that a voice detector takes at a time, 32 ms.
inline constexpr std::size_t windowSize = 512;
/// Speech that is shorter than this isn't taken for speech, in samples (0.2 s).
inline constexpr std::int64_t shortestSpeech = 3200;

/// Finds speech in one stream of 16 kHz sound.
struct VoiceDetector {
    /// A stretch of speech between two silences; positions in samples since the last reset.
    struct Speech {
        std::int64_t start = 0;
        std::int64_t length = 0;
    };

    virtual ~VoiceDetector() = default;

    /// Takes the next `windowSize` samples.
    virtual void accept(std::span<const float> window) = 0;
    /// Whether somebody is speaking at the end of what was taken.
    [[nodiscard]] virtual bool isSpeaking() const = 0;
    /// The oldest stretch that has ended; absent when there is none left.
    [[nodiscard]] virtual std::optional<Speech> next() = 0;
    /// Ends the stretch that is going on.
    virtual void flush() = 0;
    /// Begins anew at position 0.
    virtual void reset() = 0;
};

/// Turns sound that holds speech into words.
struct Transcriber {
    virtual ~Transcriber() = default;

    /// The words in 16 kHz sound of up to a quarter of a minute; empty when there are none.
    [[nodiscard]] virtual std::string transcribe(std::span<const float> sound) = 0;
};

} // namespace mnemora::engines::speech
