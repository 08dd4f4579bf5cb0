#include "Linux/Screen/FrameLayout.h"

#include <algorithm>
#include <cstring>
#include <sys/stat.h>
#include <utility>

namespace mnemora {
namespace {

constexpr std::size_t bytesPerPixel = 4;
constexpr std::uint32_t flip = 4;
constexpr std::uint32_t transforms = 8;

} // namespace

std::size_t bytesInFile(int file, std::size_t offset, std::size_t size) {
    struct stat facts {};
    if (fstat(file, &facts) != 0 || facts.st_size < 0)
        return 0;
    const auto end = static_cast<std::size_t>(facts.st_size);
    return offset < end ? std::min(size, end - offset) : 0;
}

std::optional<Image> imageIn(const std::uint8_t* memory, std::size_t size, std::size_t offset,
                             std::int64_t stride, const FrameLayout& layout) {
    if (memory == nullptr || layout.width <= 0 || layout.height <= 0 ||
        layout.width > maxFrameSide || layout.height > maxFrameSide)
        return std::nullopt;
    const auto row = static_cast<std::size_t>(layout.width) * bytesPerPixel;
    const auto rows = static_cast<std::size_t>(layout.height);
    // A negative stride becomes huge here.
    const auto step = stride == 0 ? row : static_cast<std::size_t>(stride);
    if (step < row || step > size || offset > size || size - offset < row ||
        rows - 1 > (size - offset - row) / step || row * rows > maxFrameBytes)
        return std::nullopt;
    auto pixels = std::make_shared<std::vector<std::uint8_t>>(row * rows);
    for (std::size_t y = 0; y < rows; ++y)
        std::memcpy(pixels->data() + y * row, memory + offset + y * step, row);
    if (layout.isRedFirst)
        for (std::size_t at = 0; at < pixels->size(); at += bytesPerPixel)
            std::swap((*pixels)[at], (*pixels)[at + 2]);
    return Image{layout.width, layout.height, row, std::move(pixels)};
}

Image upright(const Image& image, std::uint32_t transform) {
    if (transform == 0 || transform >= transforms)
        return image;
    const bool isSideways = transform % 2 == 1;
    const int width = isSideways ? image.height : image.width;
    const int height = isSideways ? image.width : image.height;
    const auto row = static_cast<std::size_t>(width) * bytesPerPixel;
    auto pixels =
        std::make_shared<std::vector<std::uint8_t>>(row * static_cast<std::size_t>(height));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const int seen = transform >= flip ? width - 1 - x : x;
            int fromX = seen;
            int fromY = y;
            switch (transform % flip) {
            case 1:
                fromX = y, fromY = image.height - 1 - seen;
                break;
            case 2:
                fromX = image.width - 1 - seen, fromY = image.height - 1 - y;
                break;
            case 3:
                fromX = image.width - 1 - y, fromY = seen;
                break;
            default:
                break;
            }
            std::memcpy(pixels->data() + static_cast<std::size_t>(y) * row +
                            static_cast<std::size_t>(x) * bytesPerPixel,
                        image.pixels->data() + static_cast<std::size_t>(fromY) * image.stride +
                            static_cast<std::size_t>(fromX) * bytesPerPixel,
                        bytesPerPixel);
        }
    return {width, height, row, std::move(pixels)};
}

bool isBlack(const Image& image) {
    if (!image.pixels)
        return true;
    for (int y = 0; y < image.height; ++y) {
        const auto* row = image.pixels->data() + static_cast<std::size_t>(y) * image.stride;
        for (int x = 0; x < image.width; ++x, row += bytesPerPixel)
            if (row[0] != 0 || row[1] != 0 || row[2] != 0)
                return false;
    }
    return true;
}

} // namespace mnemora
