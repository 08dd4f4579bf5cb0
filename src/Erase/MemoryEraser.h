#pragma once
// Takes observations out of the memory for good, while other processes may hold it open: rows,
// full-text index and vectors in one transaction, then the whole file is written anew and the
// write-ahead log emptied, so that no file holds their bytes any more.

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <string>

struct sqlite3;

namespace mnemora {

/// Observations at or after `from` and before `until`, seconds since the Unix epoch.
struct TimeRange {
    double from = -std::numeric_limits<double>::infinity();
    double until = std::numeric_limits<double>::infinity();

    bool operator==(const TimeRange&) const = default;
};

/// What lies in a range.
struct RangeContents {
    std::int64_t events = 0;
    /// How many of them are parts of a meeting's transcript.
    std::int64_t ofMeetings = 0;
    /// Times of the first and the last; meaningless without events.
    double first = 0;
    double last = 0;
};

/// How an erasure ended, and SQLite's word for what went wrong.
struct Erasure {
    enum class Outcome {
        erased,
        /// Everything is as it was.
        unchanged,
        /// The observations are gone from the memory, but their bytes may still stand in unused
        /// parts of its files, until an erasure (of whatever range) goes through.
        remainsLeft
    };
    Outcome outcome = Outcome::unchanged;
    std::string reason;
};

/// One connection to an existing memory. One thread.
class MemoryEraser {
  public:
    /// `patience` is how long each step waits for other processes.
    MemoryEraser(const std::filesystem::path& database, std::chrono::milliseconds patience);

    /// Absent when the memory can't be read; `reason` then says why.
    [[nodiscard]] std::optional<RangeContents> contents(const TimeRange& range) const;

    /// Erases the range. With nothing in it the files are still cleaned of what an earlier erasure
    /// had to leave. Needs free space of about twice the memory's size.
    [[nodiscard]] Erasure erase(const TimeRange& range) const;

    /// SQLite's message for what failed last.
    [[nodiscard]] std::string reason() const;

  private:
    /// All or nothing; what hindered it, or absent.
    [[nodiscard]] std::optional<std::string> eraseRows(const TimeRange& range) const;
    [[nodiscard]] bool emptyLog() const;

    struct Close {
        void operator()(sqlite3* db) const;
    };
    std::unique_ptr<sqlite3, Close> db_;
};

} // namespace mnemora
