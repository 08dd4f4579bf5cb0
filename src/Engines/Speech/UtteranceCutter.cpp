#include "Engines/Speech/UtteranceCutter.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace mnemora::engines::speech {
namespace {

// In samples at 16 kHz.
constexpr std::int64_t margin = 1600;              // kept before and after speech, 100 ms
constexpr std::int64_t longestSpeech = 12 * 16000; // then it is cut
constexpr std::int64_t cutWithin = 2 * 16000;      // somewhere in this long an end of it
constexpr std::int64_t cutWidth = 1600;            // where this long is quietest
constexpr std::int64_t cutStep = 160;
constexpr std::int64_t shortestUtterance = margin;
// The detector says that somebody speaks after the shortest speech and two windows more.
constexpr std::int64_t noticeDelay = shortestSpeech + 2 * static_cast<std::int64_t>(windowSize);
// Long enough to hold what is needed of speech that the detector tells of when it has ended.
constexpr std::int64_t memory = longestSpeech + 4 * 16000;

} // namespace

UtteranceCutter::UtteranceCutter(VoiceDetector& detector, Sink sink)
    : detector_(detector), sink_(std::move(sink)) {}

void UtteranceCutter::append(std::span<const float> samples) {
    constexpr auto step = static_cast<std::int64_t>(windowSize);
    history_.insert(history_.end(), samples.begin(), samples.end());
    const auto end = position();
    while (heard_ + step <= end)
        takeWindow(between(heard_, heard_ + step));
    forgetOld();
}

void UtteranceCutter::finish() {
    const auto missing = static_cast<std::int64_t>(windowSize) - (position() - heard_);
    append(std::vector<float>(static_cast<std::size_t>(missing), 0.0F));
    detector_.flush();
    takeEnded();
    speechFrom_.reset();
}

void UtteranceCutter::takeWindow(std::span<const float> window) {
    detector_.accept(level_.raised(window));
    heard_ += static_cast<std::int64_t>(windowSize);
    followSpeech();
    cutLongSpeech();
    takeEnded();
}

void UtteranceCutter::followSpeech() {
    if (!detector_.isSpeaking())
        return speechFrom_.reset();
    spokenTo_ = heard_;
    if (!speechFrom_)
        speechFrom_ = std::max(cutTo_, heard_ - noticeDelay - margin);
}

void UtteranceCutter::cutLongSpeech() {
    if (!speechFrom_ || heard_ - *speechFrom_ <= longestSpeech)
        return;
    const auto cut = quietestPoint();
    emit(*speechFrom_, cut);
    speechFrom_ = cut;
}

/// What was cut off before the detector ended the stretch isn't taken again.
void UtteranceCutter::takeEnded() {
    while (const auto speech = detector_.next())
        emit(speech->start - margin, speech->start + speech->length + margin);
}

void UtteranceCutter::emit(std::int64_t from, std::int64_t to) {
    from = std::max({from, cutTo_, historyFrom_});
    to = std::min(to, heard_);
    if (to - from < shortestUtterance)
        return;
    cutTo_ = to;
    sink_(from, between(from, to));
}

void UtteranceCutter::forgetOld() {
    // In large steps: moving the rest to the front for every piece would cost more than it saves.
    const auto keepFrom = heard_ - memory;
    if (keepFrom - historyFrom_ < memory)
        return;
    history_.erase(history_.begin(), history_.begin() + (keepFrom - historyFrom_));
    historyFrom_ = keepFrom;
}

/// The middle of the quietest stretch near the end: most likely between two words.
std::int64_t UtteranceCutter::quietestPoint() const {
    auto best = heard_;
    auto least = std::numeric_limits<double>::max();
    for (auto at = heard_ - cutWithin; at + cutWidth <= heard_; at += cutStep) {
        double energy = 0;
        for (const float sample : between(at, at + cutWidth))
            energy += static_cast<double>(sample) * static_cast<double>(sample);
        if (energy < least) {
            least = energy;
            best = at + cutWidth / 2;
        }
    }
    return best;
}

std::int64_t UtteranceCutter::position() const {
    return historyFrom_ + static_cast<std::int64_t>(history_.size());
}

bool UtteranceCutter::hasHeardSpeechSince(std::int64_t from) const {
    return speechFrom_ || spokenTo_ > from;
}

std::span<const float> UtteranceCutter::remembered(std::int64_t from, std::int64_t to) const {
    from = std::max(from, historyFrom_);
    to = std::min(to, position());
    return from < to ? between(from, to) : std::span<const float>();
}

std::span<const float> UtteranceCutter::between(std::int64_t from, std::int64_t to) const {
    return std::span(history_).subspan(static_cast<std::size_t>(from - historyFrom_),
                                       static_cast<std::size_t>(to - from));
}

} // namespace mnemora::engines::speech
