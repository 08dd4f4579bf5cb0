#pragma once
// What the frames of text recognition carry. A picture lies in an attached memory file that is
// sealed against any change, so that the child can map it and neither end can pull it away from
// the other.

#include "Platform/TextRecognizer.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace mnemora::engines {

/// The shape of an attached picture; its rows as Image's.
struct PictureShape {
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::uint64_t stride = 0;

    /// Sides within 1..16384 and rows that hold their pixels, so that no product overflows.
    [[nodiscard]] bool isValid() const;
    [[nodiscard]] std::size_t size() const { return static_cast<std::size_t>(height) * stride; }
};

[[nodiscard]] std::string encodeShape(const PictureShape& shape);
/// Absent when the payload isn't a valid shape.
[[nodiscard]] std::optional<PictureShape> decodeShape(std::string_view payload);

[[nodiscard]] std::string encodeLines(const std::vector<RecognizedLine>& lines);
/// Absent when the payload isn't exactly a list of lines. Their text is what the child says,
/// any bytes at all.
[[nodiscard]] std::optional<std::vector<RecognizedLine>> decodeLines(std::string_view payload);

} // namespace mnemora::engines
