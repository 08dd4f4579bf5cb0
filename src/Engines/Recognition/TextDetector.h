#pragma once
// Finds the boxes of text in a picture. The detector runs on overlapping horizontal bands, each on
// its own: that bounds the memory that it takes, and a band whose pixels are those of the former
// picture needn't be searched again. The network weighs its channels by their mean over
// everything it is shown, so it must be shown the same band to give the same boxes; bands with
// fixed places make the boxes of a picture a function of this picture alone.

#include "Engines/Recognition/PixelDigest.h"
#include "Engines/Recognition/TextNetworks.h"
#include "Engines/Recognition/TextRegions.h"

#include <optional>
#include <vector>

namespace mnemora::recognition {

/// Rows of the scaled picture that are searched together. A line belongs to the band in whose own
/// rows its middle lies; the rows beyond are shared with the neighbours, so that every line up to
/// their height is whole in one band at least.
struct Band {
    int top = 0;
    int rows = 0;
    int ownTop = 0;
    int ownBottom = 0;

    bool operator==(const Band&) const = default;
};

/// Bands of equal height that cover the size: one shape for the networks' runtime to compile.
[[nodiscard]] std::vector<Band> bandsOf(DetectionSize size);

/// One thread at a time. Keeps what it found in the bands of the former picture.
class TextDetector {
  public:
    explicit TextDetector(TextNetworks& networks) : networks_(networks) {}

    /// Boxes in the picture's own pixels, inside it and not empty; absent when the network fails.
    [[nodiscard]] std::optional<std::vector<Box>> find(const PictureView& picture);

  private:
    struct Searched {
        PixelDigest digest;
        std::vector<Region> regions;
    };

    std::optional<std::vector<Region>> regionsIn(const PictureView& picture, DetectionSize size,
                                                 int top, int rows, Searched& former);
    bool addFromHalfSize(const PictureView& picture, DetectionSize size,
                         std::vector<Region>& regions);

    TextNetworks& networks_;
    DetectionSize size_;
    std::vector<Searched> former_; // per band, the whole at half the size last
};

} // namespace mnemora::recognition
