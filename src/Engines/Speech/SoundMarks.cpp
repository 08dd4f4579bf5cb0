#include "Engines/Speech/SoundMarks.h"

#include <algorithm>

namespace mnemora::engines::speech {
namespace {

constexpr std::int64_t memory = 30 * 16000;

} // namespace

void SoundMarks::add(std::uint64_t piece, std::int64_t position) {
    marks_.push_back({piece, position});
    while (marks_.front().position < position - memory)
        marks_.pop_front();
}

SoundMarks::Time SoundMarks::timeOf(std::int64_t position) const {
    const auto mark = std::ranges::lower_bound(marks_, position, {}, &Mark::position);
    if (mark == marks_.end())
        return marks_.empty() ? Time{} : Time{marks_.back().piece, 0};
    return {mark->piece, mark->position - position};
}

std::int64_t SoundMarks::positionAt(Time time) const {
    const auto later = std::ranges::upper_bound(marks_, time.piece, {}, &Mark::piece);
    if (later == marks_.begin())
        return 0;
    return std::max<std::int64_t>(0, std::prev(later)->position - time.before);
}

} // namespace mnemora::engines::speech
