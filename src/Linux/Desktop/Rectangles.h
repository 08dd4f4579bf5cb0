#pragma once
// Areas of the screen as lists of rectangles: what of one is left in sight behind others.

#include <cstddef>
#include <vector>

namespace mnemora::desktop {

/// In pixels of the whole screen; empty unless both sides are positive.
struct Rectangle {
    int left = 0;
    int top = 0;
    int width = 0;
    int height = 0;

    [[nodiscard]] bool isEmpty() const { return width <= 0 || height <= 0; }

    bool operator==(const Rectangle&) const = default;
};

/// Rectangles that don't overlap, in no particular order.
using Area = std::vector<Rectangle>;

/// What two rectangles share; empty where they don't meet.
[[nodiscard]] Rectangle intersection(const Rectangle& one, const Rectangle& other);

/// The area without what lies in `cover`. An area that falls into more than maxPieces stays as it
/// was: too much rather than too little.
[[nodiscard]] Area without(const Area& area, const Rectangle& cover);

inline constexpr std::size_t maxPieces = 512;

} // namespace mnemora::desktop
