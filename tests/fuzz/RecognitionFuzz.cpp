// Fuzz target: what the networks of text recognition may answer, through everything that is made
// of it: regions, boxes, reading order, the lines' text.

#include "Engines/Recognition/PictureReader.h"
#include "Engines/Recognition/ReadingOrder.h"
#include "Engines/Recognition/TextDetector.h"
#include "fuzz/FuzzInput.h"

#include <algorithm>
#include <limits>
#include <numeric>

namespace {

using namespace mnemora::recognition;
using mnemora::fuzz::FuzzInput;
using mnemora::fuzz::require;

/// 0..1 as a network gives it, and now and then what none should.
float probability(FuzzInput& input) {
    const int value = input.byte();
    if (value == 255)
        return std::numeric_limits<float>::quiet_NaN();
    if (value == 254)
        return std::numeric_limits<float>::infinity();
    return static_cast<float>(value - 20) / 200.0F;
}

std::vector<float> values(FuzzInput& input, std::size_t count) {
    std::vector<float> all;
    all.reserve(count);
    while (all.size() < count)
        // Runs, so that a short input makes a whole map.
        all.insert(all.end(), std::min<std::size_t>(count - all.size(), 1U + input.byte()),
                   probability(input));
    return all;
}

class FuzzedNetworks : public TextNetworks {
  public:
    explicit FuzzedNetworks(FuzzInput& input) : input_(input) {}

    std::optional<std::vector<float>> detect(const Planes& planes) override {
        if (input_.empty())
            return std::nullopt;
        return values(input_, static_cast<std::size_t>(planes.width) *
                                  static_cast<std::size_t>(planes.height));
    }
    std::optional<Reading> read(const Planes& line) override {
        require(line.height == lineHeight &&
                line.values.size() == static_cast<std::size_t>(line.width) * lineHeight * 3);
        static const Alphabet alphabet("a\nb\n\xC3\xA9\n");
        const auto scores = values(input_, alphabet.size() * (1U + input_.byte() % 40));
        return readGreedily(scores, alphabet);
    }

  private:
    FuzzInput& input_;
};

void checkOrder(FuzzInput& input) {
    std::vector<Box> boxes(input.byte() % 40);
    for (auto& box : boxes) {
        box.left = input.number(16383);
        box.top = input.number(16383);
        box.right = box.left + 1 + input.number(16383 - box.left);
        box.bottom = box.top + 1 + input.number(16383 - box.top);
    }
    std::vector<std::size_t> all;
    for (const auto& line : linesInReadingOrder(boxes))
        all.insert(all.end(), line.begin(), line.end());
    std::ranges::sort(all);
    std::vector<std::size_t> each(boxes.size());
    std::iota(each.begin(), each.end(), std::size_t{0});
    require(all == each);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    checkOrder(input);
    const int width = 1 + input.number(200);
    // Mostly small, for speed; now and then tall enough for several bands.
    const int height = 1 + input.number(input.byte() % 8 == 1 ? 700 : 100);
    const std::vector<std::uint8_t> pixels(
        static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4, input.byte());
    const PictureView picture{.pixels = pixels.data(),
                              .width = width,
                              .height = height,
                              .stride = static_cast<std::size_t>(width) * 4};
    FuzzedNetworks networks(input);
    TextDetector detector(networks);
    if (const auto boxes = detector.find(picture))
        for (const auto& box : *boxes)
            require(box.left >= 0 && box.top >= 0 && box.left < box.right && box.top < box.bottom &&
                    box.right <= width && box.bottom <= height);
    PictureReader reader(networks);
    (void)reader.read(picture);
    return 0;
}
