#pragma once
// Text recognition in pictures.

#include "Platform/ScreenCapture.h"

#include <optional>
#include <string>
#include <vector>

namespace mnemora {

/// One recognised line.
struct RecognizedLine {
    /// The best reading; absent when no reading is good enough.
    std::optional<std::string> bestCandidate;

    bool operator==(const RecognizedLine&) const = default;
};

/// Any thread but the main one; takes as long as the picture is large.
struct TextRecognizer {
    virtual ~TextRecognizer() = default;

    /// The lines of the picture in reading order; empty when nothing is recognised or the
    /// recogniser is not available.
    [[nodiscard]] virtual std::vector<RecognizedLine> recognize(const Image& image) = 0;
};

} // namespace mnemora
