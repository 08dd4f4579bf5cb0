#include "Engines/Recognition/TextRegions.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace mnemora::recognition {
namespace {

constexpr float coreThreshold = 0.3F;
constexpr float meanThreshold = 0.5F;
constexpr int smallestSide = 3;
// How far a core is grown, as a share of its area over its perimeter: what the network was
// trained to shrink by.
constexpr double growth = 1.6;

class Components {
  public:
    explicit Components(const ProbabilityMap& map)
        : map_(map), seen_(map.values.size()), width_(static_cast<std::size_t>(map.width)) {}

    /// The bounds of the connected core pixels around the pixel; absent where none starts.
    std::optional<Box> around(int x, int y) {
        if (!take(x, y))
            return std::nullopt;
        Box bounds{x, y, x + 1, y + 1};
        pending_.push_back({x, y});
        while (!pending_.empty()) {
            const auto [atX, atY] = pending_.back();
            pending_.pop_back();
            bounds = {std::min(bounds.left, atX), std::min(bounds.top, atY),
                      std::max(bounds.right, atX + 1), std::max(bounds.bottom, atY + 1)};
            takeNeighbours(atX, atY);
        }
        return bounds;
    }

  private:
    struct Pixel {
        int x;
        int y;
    };

    bool take(int x, int y) {
        const auto at = static_cast<std::size_t>(y) * width_ + static_cast<std::size_t>(x);
        if (seen_[at] != 0 || map_.values[at] <= coreThreshold)
            return false;
        seen_[at] = 1;
        return true;
    }

    void takeNeighbours(int x, int y) {
        for (int atY = std::max(0, y - 1); atY <= std::min(map_.height - 1, y + 1); ++atY)
            for (int atX = std::max(0, x - 1); atX <= std::min(map_.width - 1, x + 1); ++atX)
                if (take(atX, atY))
                    pending_.push_back({atX, atY});
    }

    const ProbabilityMap& map_;
    std::vector<std::uint8_t> seen_;
    std::size_t width_;
    std::vector<Pixel> pending_;
};

float meanInside(const ProbabilityMap& map, const Box& bounds) {
    double sum = 0;
    for (int y = bounds.top; y < bounds.bottom; ++y)
        for (int x = bounds.left; x < bounds.right; ++x)
            sum += map.values[static_cast<std::size_t>(y) * static_cast<std::size_t>(map.width) +
                              static_cast<std::size_t>(x)];
    return static_cast<float>(sum / (static_cast<double>(bounds.width()) * bounds.height()));
}

Region grown(const Box& bounds, int mapHeight) {
    const double area = static_cast<double>(bounds.width()) * bounds.height();
    const double distance = area * growth / (2.0 * (bounds.width() + bounds.height()));
    return {.left = bounds.left - distance,
            .top = bounds.top - distance,
            .right = bounds.right + distance,
            .bottom = bounds.bottom + distance,
            .touchesTop = bounds.top == 0,
            .touchesBottom = bounds.bottom == mapHeight};
}

} // namespace

std::vector<Region> findRegions(const ProbabilityMap& map) {
    std::vector<Region> regions;
    Components components(map);
    for (int y = 0; y < map.height; ++y)
        for (int x = 0; x < map.width; ++x) {
            const auto bounds = components.around(x, y);
            if (!bounds || std::min(bounds->width(), bounds->height()) < smallestSide)
                continue;
            if (meanInside(map, *bounds) >= meanThreshold)
                regions.push_back(grown(*bounds, map.height));
        }
    return regions;
}

} // namespace mnemora::recognition
