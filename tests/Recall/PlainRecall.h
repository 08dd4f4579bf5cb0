#pragma once
// The two rankings and their fusion once more, written for plainness alone and sharing nothing
// with the engine: every event in memory, every score computed, everything sorted.

#include "Store/Models.h"

#include <cstdint>
#include <string>
#include <vector>

namespace mnemora::test {

/// An event with its id and its stored vector (empty where it has none).
struct PlainEvent {
    std::int64_t id = 0;
    MnemoraEvent event;
    std::vector<float> vector;
};

class PlainRecall {
  public:
    explicit PlainRecall(std::vector<PlainEvent> events) : events_(std::move(events)) {}

    /// Ids by bm25 over title, body and person, as SQLite's manual gives the formula
    /// (https://www.sqlite.org/fts5.html#the_bm25_function).
    [[nodiscard]] std::vector<std::int64_t> keywordRanking(const std::string& query,
                                                           std::size_t limit) const;
    /// Ids by cosine similarity.
    [[nodiscard]] std::vector<std::int64_t> semanticRanking(const std::vector<float>& query,
                                                            std::size_t limit) const;
    /// Both fused, cut to `limit`.
    [[nodiscard]] std::vector<std::int64_t>
    search(const std::string& query, const std::vector<float>& vector, std::size_t limit) const;

  private:
    std::vector<PlainEvent> events_;
};

} // namespace mnemora::test
