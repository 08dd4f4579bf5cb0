#include "Linux/Screen/GuardedScreenCapture.h"

#include <algorithm>
#include <utility>

namespace mnemora {

Image blackened(const Image& image, const desktop::Rectangle& place, const desktop::Area& parts) {
    constexpr int bytesPerPixel = 4;
    const auto pixels = std::make_shared<std::vector<std::uint8_t>>(*image.pixels);
    for (const auto& part : parts) {
        const int left = std::clamp(part.left - place.left, 0, image.width);
        const int right = std::clamp(part.left + part.width - place.left, left, image.width);
        const int top = std::clamp(part.top - place.top, 0, image.height);
        const int bottom = std::clamp(part.top + part.height - place.top, top, image.height);
        for (int y = top; y < bottom; ++y) {
            const auto row = pixels->begin() + static_cast<std::ptrdiff_t>(image.stride) * y;
            std::fill(row + left * bytesPerPixel, row + right * bytesPerPixel, std::uint8_t{0});
        }
    }
    return {image.width, image.height, image.stride, pixels};
}

std::uint64_t GuardedScreenCapture::windowChanges() const {
    return checks_.windowChanges ? checks_.windowChanges() : 0;
}

Outcome<std::vector<Display>> GuardedScreenCapture::displays() {
    keep(std::nullopt);
    if (!checks_.hasRoom() || !checks_.guard->contentMayBeRead())
        return std::vector<Display>();
    const auto changes = windowChanges();
    const auto before = checks_.regions->withheld();
    if (!before)
        return std::vector<Display>();
    const auto taken = shot();
    const auto after = checks_.regions->withheld();
    // What came and went in between has not been judged.
    if (!after || !checks_.guard->contentMayBeRead() || windowChanges() != changes)
        return std::vector<Display>();
    if (!taken)
        return Failure{taken.description()};
    if (taken->displays.empty())
        return taken->displays;
    auto parts = *before;
    parts.insert(parts.end(), after->begin(), after->end());
    // Where nobody tells the places of windows, a withheld one may be anywhere.
    if (std::ranges::any_of(parts, [&](const auto& part) {
            return desktop::intersection(part, taken->place) == taken->place;
        }))
        return std::vector<Display>();
    keep(Picture{taken->displays.front(),
                 parts.empty() ? taken->image : blackened(taken->image, taken->place, parts)});
    return taken->displays;
}

Outcome<Image> GuardedScreenCapture::image(const Display& display, int width, int height) {
    const std::lock_guard lock(mutex_);
    if (!picture_ || picture_->display.identifier != display.identifier ||
        picture_->display.width != width || picture_->display.height != height)
        return Failure{"the display has no picture of this size"};
    Image image = std::move(picture_->image);
    picture_.reset();
    return image;
}

void GuardedScreenCapture::keep(std::optional<Picture> picture) {
    const std::lock_guard lock(mutex_);
    picture_ = std::move(picture);
}

} // namespace mnemora
