#pragma once
// The text of pictures that follow each other, most of them nearly alike: what was read once is
// read again only when its pixels change. A line's text depends on the pixels in its box and on
// nothing else, so the answer is the same as that of a reader who has seen nothing before.

#include "Engines/Recognition/PixelDigest.h"
#include "Engines/Recognition/TextDetector.h"
#include "Engines/Recognition/TextNetworks.h"
#include "Platform/TextRecognizer.h"

#include <cstdint>
#include <optional>
#include <unordered_map>
#include <vector>

namespace mnemora::recognition {

/// One thread at a time.
class PictureReader {
  public:
    explicit PictureReader(TextNetworks& networks) : networks_(networks), detector_(networks) {}

    /// The lines of the picture in reading order; absent when a network fails.
    [[nodiscard]] std::optional<std::vector<RecognizedLine>> read(const PictureView& picture);

  private:
    struct Known {
        Reading reading;
        std::uint64_t lastPicture = 0;
    };

    std::optional<Reading> readBox(const PictureView& picture, const Box& box);
    void forget();

    TextNetworks& networks_;
    TextDetector detector_;
    std::unordered_map<PixelDigest, Known, PixelDigestHash> known_;
    std::uint64_t pictures_ = 0;
};

} // namespace mnemora::recognition
