#pragma once
// Cuts one stream of sound into utterances: stretches of speech between silences, with a little
// sound around them, and stretches of at most some twelve seconds where nobody pauses.

#include "Engines/Speech/DetectorLevel.h"
#include "Engines/Speech/SpeechModels.h"

#include <functional>
#include <vector>

namespace mnemora::engines::speech {

/// Every sample belongs to at most one utterance, and utterances come in order.
class UtteranceCutter {
  public:
    /// Receives an utterance and the position of its first sample in the stream.
    using Sink = std::function<void(std::int64_t from, std::span<const float> sound)>;

    /// `detector` is freshly reset and outlives this.
    UtteranceCutter(VoiceDetector& detector, Sink sink);

    /// Takes the next 16 kHz samples, any number of them.
    void append(std::span<const float> samples);
    /// Ends the utterance that is going on; nothing is appended after this.
    void finish();
    [[nodiscard]] bool isSpeaking() const { return speechFrom_.has_value(); }

    /// How many samples came so far.
    [[nodiscard]] std::int64_t position() const;
    /// Whether there was speech at this position or later.
    [[nodiscard]] bool hasHeardSpeechSince(std::int64_t from) const;
    /// What of this stretch is still remembered: the last quarter of a minute at least.
    [[nodiscard]] std::span<const float> remembered(std::int64_t from, std::int64_t to) const;

  private:
    void takeWindow(std::span<const float> window);
    void followSpeech();
    void cutLongSpeech();
    void takeEnded();
    void emit(std::int64_t from, std::int64_t to);
    void forgetOld();
    [[nodiscard]] std::int64_t quietestPoint() const;
    [[nodiscard]] std::span<const float> between(std::int64_t from, std::int64_t to) const;

    VoiceDetector& detector_;
    DetectorLevel level_;
    const Sink sink_;
    std::vector<float> history_;             // the sound that may still be needed
    std::int64_t historyFrom_ = 0;           // position of its first sample
    std::int64_t heard_ = 0;                 // how far the detector has come
    std::int64_t cutTo_ = 0;                 // everything before is in utterances or dropped
    std::int64_t spokenTo_ = -1;             // the end of the speech before
    std::optional<std::int64_t> speechFrom_; // where the speech going on may have begun
};

} // namespace mnemora::engines::speech
