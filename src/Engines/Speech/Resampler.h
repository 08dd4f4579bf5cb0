#pragma once
// Sound of any rate and number of channels as one channel of 16 kHz, piece by piece.

#include "Engines/SpeechFrames.h"

#include <memory>
#include <vector>

namespace mnemora::engines::speech {

/// What the voice detector and the recogniser were trained on, in samples per second.
inline constexpr int sampleRate = 16000;

/// One stream's converter; keeps the filter's state from piece to piece. When the rate changes, as
/// it does when a device is replaced, the sound of the old rate is completed first.
class Resampler {
  public:
    Resampler();
    ~Resampler();
    Resampler(const Resampler&) = delete;
    Resampler& operator=(const Resampler&) = delete;

    /// The samples that are complete after this piece, a few milliseconds behind it.
    [[nodiscard]] std::vector<float> convert(const SoundPiece& piece);
    /// The rest, once no more sound will come.
    [[nodiscard]] std::vector<float> finish();

  private:
    struct Converter;

    std::unique_ptr<Converter> converter_; // null before the first piece and at 16 kHz
    double inputRate_ = 0;
};

} // namespace mnemora::engines::speech
