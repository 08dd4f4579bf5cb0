#include "Engines/Speech/DetectorLevel.h"

#include <algorithm>
#include <cmath>

namespace mnemora::engines::speech {
namespace {

/// Peaks of somebody speaking into a microphone that is turned up as it should be.
constexpr float usualPeak = 0.3F;
constexpr float mostGain = 10;
constexpr float fall = 0.9956F; // a window: 6 dB in five seconds

} // namespace

std::span<const float> DetectorLevel::raised(std::span<const float> window) {
    peak_ *= fall;
    for (const float sample : window)
        peak_ = std::max(peak_, std::abs(sample));
    const float gain = std::clamp(usualPeak / std::max(peak_, 1e-6F), 1.0F, mostGain);
    std::ranges::transform(window, raised_.begin(), [gain](float sample) { return gain * sample; });
    return std::span(raised_).first(window.size());
}

} // namespace mnemora::engines::speech
