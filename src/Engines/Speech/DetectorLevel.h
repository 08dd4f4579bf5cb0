#pragma once
// Raises quiet sound for the voice detector, which notices words from a microphone of little gain a
// tenth of a second late and so without their first syllable. The recogniser needs no such help.

#include "Engines/Speech/SpeechModels.h"

#include <array>
#include <span>

namespace mnemora::engines::speech {

/// One stream's; takes its windows in order.
class DetectorLevel {
  public:
    /// The window, up to 20 dB louder where all that was heard lately is quiet. Valid until the
    /// next call.
    [[nodiscard]] std::span<const float> raised(std::span<const float> window);

  private:
    float peak_ = 0; // of the last seconds; falls slowly, rises at once
    std::array<float, windowSize> raised_{};
};

} // namespace mnemora::engines::speech
