#include "Engines/Recognition/ReadingOrder.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace mnemora::recognition {
namespace {

// Both in heights of the box at hand.
constexpr double sameRow = 0.4;
constexpr double sameLine = 1.0;

using Indices = std::vector<std::size_t>;

std::vector<Indices> rows(std::span<const Box> boxes) {
    Indices byCentre(boxes.size());
    std::iota(byCentre.begin(), byCentre.end(), 0U);
    std::stable_sort(byCentre.begin(), byCentre.end(), [&](std::size_t a, std::size_t b) {
        return boxes[a].middle() < boxes[b].middle();
    });
    std::vector<Indices> result;
    double centre = 0;
    for (const auto index : byCentre) {
        const Box& box = boxes[index];
        if (result.empty() || std::abs(box.middle() - centre) >= box.height() * sameRow) {
            result.emplace_back();
            centre = box.middle();
        }
        result.back().push_back(index);
    }
    return result;
}

} // namespace

std::vector<Indices> linesInReadingOrder(std::span<const Box> boxes) {
    std::vector<Indices> lines;
    for (auto& row : rows(boxes)) {
        std::stable_sort(row.begin(), row.end(), [&](std::size_t a, std::size_t b) {
            return boxes[a].left < boxes[b].left;
        });
        const Box* former = nullptr;
        for (const auto index : row) {
            const Box& box = boxes[index];
            if (former == nullptr || box.left - former->right > box.height() * sameLine)
                lines.emplace_back();
            lines.back().push_back(index);
            former = &box;
        }
    }
    return lines;
}

} // namespace mnemora::recognition
