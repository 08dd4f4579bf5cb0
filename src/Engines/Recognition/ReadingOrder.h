#pragma once
// In which order the boxes of a screen are read, and which of them form one line.

#include "Engines/Recognition/Geometry.h"

#include <span>
#include <vector>

namespace mnemora::recognition {

/// Indices of the boxes, grouped into lines. Boxes whose vertical centres nearly agree stand in
/// one row and are read from left to right; neighbours in a row are one line where the gap is no
/// more than a word's, so that columns, cells and panes stay apart.
[[nodiscard]] std::vector<std::vector<std::size_t>> linesInReadingOrder(std::span<const Box> boxes);

} // namespace mnemora::recognition
