#include "Engines/Recognition/Scaling.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace mnemora::recognition {
namespace {

constexpr int longestSide = 1600;
constexpr int sideStep = 32;
constexpr int narrowestLine = 16;
// A line of 180 characters of a common font comes out about this wide; wider ones are squeezed,
// which bounds the memory of one reading.
constexpr int widestLine = 3072;

/// Where a scaled coordinate falls between two source coordinates.
struct Sample {
    int first;
    int second;
    float weight; // of the second
};

// Pixel centres are mapped onto pixel centres, and the border pixels continue outwards.
std::vector<Sample> samples(int from, int sourceLength, int wholeLength, int begin, int count) {
    const double scale = static_cast<double>(sourceLength) / wholeLength;
    std::vector<Sample> result;
    result.reserve(static_cast<std::size_t>(count));
    for (int i = begin; i < begin + count; ++i) {
        const double at = std::clamp((i + 0.5) * scale - 0.5, 0.0, sourceLength - 1.0);
        const int first = static_cast<int>(at);
        result.push_back({from + first, from + std::min(first + 1, sourceLength - 1),
                          static_cast<float>(at - first)});
    }
    return result;
}

float mix(float first, float second, float weight) {
    return first + (second - first) * weight;
}

/// Fills the top left of `into` with the samples of the picture, one value per row and column.
void fill(const PictureView& picture, const std::vector<Sample>& columns,
          const std::vector<Sample>& rows, Planes& into) {
    const auto width = static_cast<std::size_t>(into.width);
    const auto plane = width * static_cast<std::size_t>(into.height);
    for (std::size_t y = 0; y < rows.size(); ++y) {
        const auto* upper = picture.row(rows[y].first);
        const auto* lower = picture.row(rows[y].second);
        float* out = into.values.data() + y * width;
        for (std::size_t x = 0; x < columns.size(); ++x) {
            const auto first = static_cast<std::size_t>(columns[x].first) * 4;
            const auto second = static_cast<std::size_t>(columns[x].second) * 4;
            for (std::size_t colour = 0; colour < 3; ++colour) {
                const float above =
                    mix(upper[first + colour], upper[second + colour], columns[x].weight);
                const float below =
                    mix(lower[first + colour], lower[second + colour], columns[x].weight);
                out[colour * plane + x] = mix(above, below, rows[y].weight) / 127.5F - 1.0F;
            }
        }
    }
}

Planes emptyPlanes(int width, int height) {
    return {
        width, height,
        std::vector<float>(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3)};
}

int roundedSide(double side) {
    return std::max(sideStep, static_cast<int>(std::lround(side / sideStep)) * sideStep);
}

int scaledLineWidth(const Box& box) {
    const double width = std::ceil(static_cast<double>(lineHeight) * box.width() / box.height());
    return static_cast<int>(std::clamp<double>(width, narrowestLine, widestLine));
}

} // namespace

DetectionSize detectionSize(int width, int height) {
    const double scale = std::min(1.0, static_cast<double>(longestSide) / std::max(width, height));
    return {roundedSide(width * scale), roundedSide(height * scale)};
}

Planes scaledBand(const PictureView& picture, DetectionSize size, int top, int rows) {
    Planes planes = emptyPlanes(size.width, rows);
    fill(picture, samples(0, picture.width, size.width, 0, size.width),
         samples(0, picture.height, size.height, top, rows), planes);
    return planes;
}

int paddedLineWidth(const Box& box) {
    const int width = scaledLineWidth(box);
    const int step = width <= 1024 ? 64 : width <= 2048 ? 128 : 256;
    return (width + step - 1) / step * step;
}

Planes scaledLine(const PictureView& picture, const Box& box) {
    Planes planes = emptyPlanes(paddedLineWidth(box), lineHeight);
    const int width = scaledLineWidth(box);
    fill(picture, samples(box.left, box.width(), width, 0, width),
         samples(box.top, box.height(), lineHeight, 0, lineHeight), planes);
    return planes;
}

} // namespace mnemora::recognition
