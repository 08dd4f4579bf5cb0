#pragma once
// What identifies a piece of a picture: equal digests stand for equal pixels.

#include "Engines/Recognition/Geometry.h"

#include <cstdint>

namespace mnemora::recognition {

/// XXH3-128 (https://xxhash.com) of a box's size and pixels.
struct PixelDigest {
    std::uint64_t low = 0;
    std::uint64_t high = 0;

    bool operator==(const PixelDigest&) const = default;
};

struct PixelDigestHash {
    std::size_t operator()(const PixelDigest& digest) const {
        return static_cast<std::size_t>(digest.low);
    }
};

/// The digest of the pixels in the box, which lies inside the picture.
[[nodiscard]] PixelDigest digestOf(const PictureView& picture, const Box& box);

} // namespace mnemora::recognition
