#pragma once
// Pictures of the screen.

#include "Support/Outcome.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace mnemora {

/// A display as the capture service lists it; sizes in pixels.
struct Display {
    std::uint32_t identifier = 0;
    int width = 0;
    int height = 0;
};

/// A picture: rows of `stride` bytes from top to bottom, four bytes a pixel in the order blue,
/// green, red, unused.
struct Image {
    int width = 0;
    int height = 0;
    std::size_t stride = 0;
    std::shared_ptr<const std::vector<std::uint8_t>> pixels;
};

/// Any thread but the main one for the two operations that take or list; they may take a while.
struct ScreenCapture {
    virtual ~ScreenCapture() = default;

    /// Whether the screen may be read, without asking the user. Any thread, at once.
    [[nodiscard]] virtual bool isPermitted() = 0;
    /// The displays, first the one that is read. Empty where what is on screen must not be read
    /// now (a private window in front, a picture still being recognised, the screen locked).
    [[nodiscard]] virtual Outcome<std::vector<Display>> displays() = 0;
    /// One image of the display at the given size.
    [[nodiscard]] virtual Outcome<Image> image(const Display& display, int width, int height) = 0;
};

} // namespace mnemora
