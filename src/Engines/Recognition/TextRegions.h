#pragma once
// From the detector's map of probabilities to boxes around lines of text, after the
// post-processing of differentiable binarisation (Liao et al., "Real-time Scene Text Detection
// with Differentiable Binarization", AAAI 2020): the network marks the shrunken core of each
// line, which is found by its connected pixels and grown back.

#include "Engines/Recognition/Geometry.h"

#include <span>
#include <vector>

namespace mnemora::recognition {

/// How probable it is, per pixel, that it belongs to the core of a line of text: 0..1, row by row.
struct ProbabilityMap {
    std::span<const float> values;
    int width = 0;
    int height = 0;
};

/// A line's place in the map's own coordinates, already grown; it may reach beyond the map.
struct Region {
    double left = 0;
    double top = 0;
    double right = 0;
    double bottom = 0;
    /// Whether the line's core touches the first or the last row of the map, so that it may go on
    /// outside.
    bool touchesTop = false;
    bool touchesBottom = false;

    [[nodiscard]] double middle() const { return (top + bottom) / 2; }
    [[nodiscard]] double height() const { return bottom - top; }
};

/// The regions of text in the map, in order of their first pixel.
[[nodiscard]] std::vector<Region> findRegions(const ProbabilityMap& map);

} // namespace mnemora::recognition
