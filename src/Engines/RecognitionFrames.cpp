#include "Engines/RecognitionFrames.h"

#include "Engines/FrameValues.h"

#include <utility>

namespace mnemora::engines {
namespace {

constexpr std::int32_t longestSide = 16384;
constexpr std::uint32_t noCandidate = 0xFFFFFFFF;

} // namespace

bool PictureShape::isValid() const {
    return width > 0 && height > 0 && width <= longestSide && height <= longestSide &&
           stride >= static_cast<std::uint64_t>(width) * 4 &&
           stride <= static_cast<std::uint64_t>(longestSide) * 8;
}

std::string encodeShape(const PictureShape& shape) {
    std::string bytes;
    append(bytes, shape.width);
    append(bytes, shape.height);
    append(bytes, shape.stride);
    return bytes;
}

std::optional<PictureShape> decodeShape(std::string_view payload) {
    PictureShape shape;
    if (!take(payload, shape.width) || !take(payload, shape.height) ||
        !take(payload, shape.stride) || !payload.empty() || !shape.isValid())
        return std::nullopt;
    return shape;
}

// Each line is its length, or the mark of a line without candidate, and its text.
std::string encodeLines(const std::vector<RecognizedLine>& lines) {
    std::string bytes;
    for (const auto& line : lines) {
        append(bytes, line.bestCandidate ? static_cast<std::uint32_t>(line.bestCandidate->size())
                                         : noCandidate);
        bytes += line.bestCandidate.value_or("");
    }
    return bytes;
}

std::optional<std::vector<RecognizedLine>> decodeLines(std::string_view payload) {
    std::vector<RecognizedLine> lines;
    while (!payload.empty()) {
        std::uint32_t length = 0;
        if (!take(payload, length))
            return std::nullopt;
        RecognizedLine& line = lines.emplace_back();
        if (length == noCandidate)
            continue;
        if (length > payload.size())
            return std::nullopt;
        line.bestCandidate = payload.substr(0, length);
        payload.remove_prefix(length);
    }
    return lines;
}

} // namespace mnemora::engines
