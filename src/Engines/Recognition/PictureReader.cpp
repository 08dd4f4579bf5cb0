#include "Engines/Recognition/PictureReader.h"

#include "Engines/Recognition/ReadingOrder.h"

namespace mnemora::recognition {
namespace {

// Readings below this are mostly icons and textures taken for text.
constexpr float leastScore = 0.5F;
// A few hundred kilobytes: the last dozens of screens, so that going back to a window is cheap.
constexpr std::size_t mostKnown = 4096;

RecognizedLine lineOf(const std::vector<std::size_t>& boxes, const std::vector<Reading>& readings) {
    RecognizedLine line;
    for (const auto index : boxes) {
        const auto& reading = readings[index];
        if (reading.score < leastScore || reading.text.empty())
            continue;
        if (!line.bestCandidate)
            line.bestCandidate = reading.text;
        else
            *line.bestCandidate += ' ' + reading.text;
    }
    return line;
}

} // namespace

std::optional<std::vector<RecognizedLine>> PictureReader::read(const PictureView& picture) {
    ++pictures_;
    const auto boxes = detector_.find(picture);
    if (!boxes)
        return std::nullopt;
    std::vector<Reading> readings;
    readings.reserve(boxes->size());
    for (const auto& box : *boxes) {
        const auto reading = readBox(picture, box);
        if (!reading)
            return std::nullopt;
        readings.push_back(*reading);
    }
    forget();
    std::vector<RecognizedLine> lines;
    for (const auto& line : linesInReadingOrder(*boxes))
        lines.push_back(lineOf(line, readings));
    return lines;
}

std::optional<Reading> PictureReader::readBox(const PictureView& picture, const Box& box) {
    const auto digest = digestOf(picture, box);
    if (const auto known = known_.find(digest); known != known_.end()) {
        known->second.lastPicture = pictures_;
        return known->second.reading;
    }
    auto reading = networks_.read(scaledLine(picture, box));
    if (reading)
        known_[digest] = {*reading, pictures_};
    return reading;
}

void PictureReader::forget() {
    if (known_.size() > mostKnown)
        std::erase_if(known_,
                      [&](const auto& entry) { return entry.second.lastPicture != pictures_; });
}

} // namespace mnemora::recognition
