#pragma once
// The few shapes that text recognition works with.

#include <cstddef>
#include <cstdint>

namespace mnemora::recognition {

/// A picture that somebody else owns: rows of `stride` bytes from top to bottom, four bytes a
/// pixel in the order blue, green, red, unused.
struct PictureView {
    const std::uint8_t* pixels = nullptr;
    int width = 0;
    int height = 0;
    std::size_t stride = 0;

    [[nodiscard]] const std::uint8_t* row(int y) const {
        return pixels + static_cast<std::size_t>(y) * stride;
    }
};

/// A rectangle of pixels; right and bottom are the first column and row outside.
struct Box {
    int left = 0;
    int top = 0;
    int right = 0;
    int bottom = 0;

    [[nodiscard]] int width() const { return right - left; }
    [[nodiscard]] int height() const { return bottom - top; }
    [[nodiscard]] double middle() const { return (top + bottom) / 2.0; }

    bool operator==(const Box&) const = default;
};

} // namespace mnemora::recognition
