#pragma once
// From a compositor's frame to a picture: where its pixels lie, in what order, which way up.

#include "Platform/ScreenCapture.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace mnemora {

/// A frame as its producer describes it.
struct FrameLayout {
    int width = 0;
    int height = 0;
    bool isRedFirst = false; ///< red, green, blue instead of blue, green, red
};

/// Of a picture of a screen; more is no screen, only memory. The largest monitors (8K) have half
/// of the bytes.
inline constexpr int maxFrameSide = 16384;
inline constexpr std::size_t maxFrameBytes = std::size_t{1 << 26} * 4;

/// How much of `size` bytes from `offset` on lies within the file: to read what is mapped beyond
/// the end of one ends the process (mmap(2), SIGBUS). 0 where there is no such file.
[[nodiscard]] std::size_t bytesInFile(int file, std::size_t offset, std::size_t size);

/// The picture in a producer's memory of `size` bytes, whose rows begin at `offset` and are
/// `stride` bytes apart (0: close together); absent where that doesn't lie within the memory or is
/// more than the above.
[[nodiscard]] std::optional<Image> imageIn(const std::uint8_t* memory, std::size_t size,
                                           std::size_t offset, std::int64_t stride,
                                           const FrameLayout& layout);

/// The picture as a person sees it whose monitor is turned: `transform` is what was done to show
/// it, by the numbers of wl_output.transform (0 to 3 quarter turns counter-clockwise, 4 to 7 the
/// same after a flip around the vertical axis). Unknown numbers leave it as it is.
[[nodiscard]] Image upright(const Image& image, std::uint32_t transform);

/// Whether every pixel is black, as where a picture was withheld or none was drawn; so is a
/// picture without pixels.
[[nodiscard]] bool isBlack(const Image& image);

} // namespace mnemora
