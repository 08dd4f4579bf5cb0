#pragma once
// From a picture's bytes to what the networks take: bilinearly scaled planes of floats.

#include "Engines/Recognition/Geometry.h"

#include <vector>

namespace mnemora::recognition {

/// Three planes (blue, green, red) one after the other, each of `height` rows of `width` values
/// in -1..1, where 0 is the middle grey.
struct Planes {
    int width = 0;
    int height = 0;
    std::vector<float> values;
};

/// The size at which a picture is searched for text.
struct DetectionSize {
    int width = 0;
    int height = 0;

    bool operator==(const DetectionSize&) const = default;
};

/// The long side at most 1600, both sides multiples of 32 and at least 32, never enlarged beyond
/// that rounding.
[[nodiscard]] DetectionSize detectionSize(int width, int height);

/// Scales the whole picture to `size` and returns `rows` rows of the result from row `top` on.
[[nodiscard]] Planes scaledBand(const PictureView& picture, DetectionSize size, int top, int rows);

/// The height at which lines are read.
inline constexpr int lineHeight = 48;

/// The width that a line's planes get for a box: wide enough for the box at the line height, and
/// one of few values, because the networks' runtime compiles code for each shape that it meets.
[[nodiscard]] int paddedLineWidth(const Box& box);

/// The box of the picture at the line height in the left of planes of `paddedLineWidth`, the rest
/// of them 0. The box lies inside the picture and isn't empty.
[[nodiscard]] Planes scaledLine(const PictureView& picture, const Box& box);

} // namespace mnemora::recognition
