#pragma once
// The two networks that text recognition rests on, as the logic around them sees them; abstract so
// that this logic can be tested without weights. The real ones are OpenVinoNetworks.

#include "Engines/Recognition/Ctc.h"
#include "Engines/Recognition/Scaling.h"

#include <optional>
#include <vector>

namespace mnemora::recognition {

/// One thread at a time.
struct TextNetworks {
    virtual ~TextNetworks() = default;

    /// The probability of text for each pixel of the planes, whose sides are multiples of 32;
    /// absent when the network fails.
    [[nodiscard]] virtual std::optional<std::vector<float>> detect(const Planes& planes) = 0;
    /// The text of a line's planes (see scaledLine); absent when the network fails.
    [[nodiscard]] virtual std::optional<Reading> read(const Planes& line) = 0;
};

} // namespace mnemora::recognition
