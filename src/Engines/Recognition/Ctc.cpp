#include "Engines/Recognition/Ctc.h"

#include <algorithm>
#include <array>

namespace mnemora::recognition {
namespace {

/// The index of the first greatest value. The alphabet has thousands of classes, so the maximum is
/// taken in lanes that the compiler turns into vector instructions.
std::size_t indexOfMaximum(std::span<const float> values) {
    constexpr std::size_t lanes = 16;
    std::array<float, lanes> greatest;
    greatest.fill(values.front());
    std::size_t at = 0;
    for (; at + lanes <= values.size(); at += lanes)
        for (std::size_t lane = 0; lane < lanes; ++lane)
            greatest[lane] =
                values[at + lane] > greatest[lane] ? values[at + lane] : greatest[lane];
    for (; at < values.size(); ++at)
        greatest[0] = std::max(greatest[0], values[at]);
    const float maximum = *std::max_element(greatest.begin(), greatest.end());
    const auto found = std::find(values.begin(), values.end(), maximum);
    // Not found only among values that aren't numbers, where nothing is right.
    return found == values.end() ? 0 : static_cast<std::size_t>(found - values.begin());
}

} // namespace

Alphabet::Alphabet(std::string_view characters) : texts_{""} {
    while (!characters.empty()) {
        const auto end = characters.find('\n');
        auto character = characters.substr(0, end);
        if (character.ends_with('\r'))
            character.remove_suffix(1);
        texts_.emplace_back(character);
        characters.remove_prefix(end == std::string_view::npos ? characters.size() : end + 1);
    }
    texts_.emplace_back(" ");
}

Reading readGreedily(std::span<const float> scores, const Alphabet& alphabet) {
    constexpr std::size_t blank = 0;
    Reading reading;
    double sum = 0;
    int count = 0;
    std::size_t former = blank;
    for (; scores.size() >= alphabet.size(); scores = scores.subspan(alphabet.size())) {
        const auto step = scores.first(alphabet.size());
        const auto index = indexOfMaximum(step);
        if (index != blank && index != former) {
            reading.text += alphabet.text(index);
            sum += step[index];
            ++count;
        }
        former = index;
    }
    reading.score = count == 0 ? 0 : static_cast<float>(sum / count);
    return reading;
}

} // namespace mnemora::recognition
