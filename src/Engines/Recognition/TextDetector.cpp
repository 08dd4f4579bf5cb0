#include "Engines/Recognition/TextDetector.h"

#include <algorithm>
#include <cmath>

namespace mnemora::recognition {
namespace {

// Pixels that the detector is shown at once; its memory grows by about 300 bytes with each.
constexpr int bandPixels = 1600 * 384;
constexpr int overlap = 128;
// Two bands may place the same line this differently.
constexpr double placeTolerance = 8;
// The network overlooks lone words on a wide empty ground, unless they are shown at half the size.
constexpr std::size_t fewRegions = 8;
// What is found at half the size is new when no more of it than this is known already.
constexpr double knownShare = 0.3;

double sharedArea(const Region& a, const Region& b) {
    const double width = std::min(a.right, b.right) - std::max(a.left, b.left);
    const double height = std::min(a.bottom, b.bottom) - std::max(a.top, b.top);
    return width > 0 && height > 0 ? width * height : 0;
}

double areaOf(const Region& region) {
    return (region.right - region.left) * region.height();
}

bool isSameLine(const Region& a, const Region& b) {
    return sharedArea(a, b) > 0.5 * std::min(areaOf(a), areaOf(b));
}

/// Whether the region is only part of a line that goes on in a neighbouring band.
bool isCut(const Region& region, const Band& band, int height) {
    return (region.touchesTop && band.top > 0) ||
           (region.touchesBottom && band.top + band.rows < height);
}

bool belongsTo(const Region& region, const Band& band) {
    return region.middle() >= band.ownTop - placeTolerance &&
           region.middle() < band.ownBottom + placeTolerance;
}

/// Adds what a band found, leaving out what the band above it has already found. True when
/// something may be missing: a line was cut, or there is suspiciously little.
bool addOwn(const std::vector<Region>& found, const Band& band, int height,
            std::vector<Region>& regions) {
    bool incomplete = found.size() < fewRegions;
    for (const auto& region : found) {
        if (!belongsTo(region, band))
            continue;
        if (isCut(region, band, height))
            incomplete = true;
        else if (std::none_of(regions.begin(), regions.end(),
                              [&](const Region& other) { return isSameLine(region, other); }))
            regions.push_back(region);
    }
    return incomplete;
}

/// The box of a region in the picture's pixels; absent where hardly anything of it is inside.
std::optional<Box> boxOf(const Region& region, const PictureView& picture, DetectionSize size) {
    constexpr int smallest = 4;
    const auto placed = [](double at, int from, int to) {
        return std::clamp(static_cast<int>(std::lround(at * to / from)), 0, to);
    };
    const Box box{placed(region.left, size.width, picture.width),
                  placed(region.top, size.height, picture.height),
                  placed(region.right, size.width, picture.width),
                  placed(region.bottom, size.height, picture.height)};
    if (box.width() < smallest || box.height() < smallest)
        return std::nullopt;
    return box;
}

} // namespace

std::vector<Band> bandsOf(DetectionSize size) {
    const int rows = std::max(2 * overlap, bandPixels / size.width / 32 * 32);
    if (rows >= size.height)
        return {{0, size.height, 0, size.height}};
    const int step = rows - overlap;
    const int count = (size.height - overlap + step - 1) / step;
    std::vector<Band> bands;
    for (int i = 0; i < count; ++i)
        bands.push_back({i * (size.height - rows) / (count - 1), rows, 0, size.height});
    for (std::size_t i = 1; i < bands.size(); ++i) {
        const int border = (bands[i].top + bands[i - 1].top + rows) / 2;
        bands[i - 1].ownBottom = border;
        bands[i].ownTop = border;
    }
    return bands;
}

std::optional<std::vector<Region>> TextDetector::regionsIn(const PictureView& picture,
                                                           DetectionSize size, int top, int rows,
                                                           Searched& former) {
    // One row more on each side than the samples of the band can touch.
    const double scale = static_cast<double>(picture.height) / size.height;
    const int first = std::max(0, static_cast<int>(top * scale) - 1);
    const int last = std::min(picture.height, static_cast<int>((top + rows) * scale) + 2);
    const auto digest = digestOf(picture, {0, first, picture.width, last});
    if (former.digest == digest)
        return former.regions;
    const auto probabilities = networks_.detect(scaledBand(picture, size, top, rows));
    if (!probabilities)
        return std::nullopt;
    auto regions = findRegions({*probabilities, size.width, rows});
    for (auto& region : regions) {
        region.top += top;
        region.bottom += top;
    }
    former = {digest, regions};
    return regions;
}

bool TextDetector::addFromHalfSize(const PictureView& picture, DetectionSize size,
                                   std::vector<Region>& regions) {
    const DetectionSize half{std::max(32, size.width / 64 * 32),
                             std::max(32, size.height / 64 * 32)};
    const auto found = regionsIn(picture, half, 0, half.height, former_.back());
    if (!found)
        return false;
    const double right = static_cast<double>(size.width) / half.width;
    const double down = static_cast<double>(size.height) / half.height;
    for (Region region : *found) {
        region.left *= right;
        region.right *= right;
        region.top *= down;
        region.bottom *= down;
        double known = 0;
        for (const auto& other : regions)
            known += sharedArea(region, other);
        if (known <= knownShare * areaOf(region) && region.height() < size.height / 2.0)
            regions.push_back(region);
    }
    return true;
}

std::optional<std::vector<Box>> TextDetector::find(const PictureView& picture) {
    const auto size = detectionSize(picture.width, picture.height);
    const auto bands = bandsOf(size);
    if (size != size_ || former_.empty()) {
        former_.assign(bands.size() + 1, {});
        size_ = size;
    }
    std::vector<Region> regions;
    bool incomplete = false;
    for (std::size_t i = 0; i < bands.size(); ++i) {
        const auto found = regionsIn(picture, size, bands[i].top, bands[i].rows, former_[i]);
        if (!found)
            return std::nullopt;
        incomplete = addOwn(*found, bands[i], size.height, regions) || incomplete;
    }
    if (incomplete && !addFromHalfSize(picture, size, regions))
        return std::nullopt;
    std::vector<Box> boxes;
    for (const auto& region : regions)
        if (const auto box = boxOf(region, picture, size))
            boxes.push_back(*box);
    return boxes;
}

} // namespace mnemora::recognition
