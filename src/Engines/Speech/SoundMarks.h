#pragma once
// Which sound of two streams came at the same time: pieces of all streams are counted as they
// arrive, and each stream remembers how far it had come with which of them.

#include <cstdint>
#include <deque>

namespace mnemora::engines::speech {

/// Positions are samples at 16 kHz since the stream's beginning.
class SoundMarks {
  public:
    /// A moment: with the piece of that number, so many samples before the end of it.
    struct Time {
        std::uint64_t piece = 0;
        std::int64_t before = 0;
    };

    /// The piece of that number, the highest so far, brought the stream to this position.
    void add(std::uint64_t piece, std::int64_t position);
    /// When the sample at this position came; for what is long past, the earliest known.
    [[nodiscard]] Time timeOf(std::int64_t position) const;
    /// Where the stream was then. 0 when it hadn't begun.
    [[nodiscard]] std::int64_t positionAt(Time time) const;

  private:
    struct Mark {
        std::uint64_t piece;
        std::int64_t position;
    };

    std::deque<Mark> marks_; // of the last half minute
};

} // namespace mnemora::engines::speech
