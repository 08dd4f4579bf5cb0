#pragma once
// The read side of the store: the three questions that an assistant may ask. Every call reads the
// database afresh; nothing is cached and nothing is ever written.

#include "Store/MnemoraStore.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace mnemora {

/// A value that shares its store; copies are cheap. Any thread.
class QueryEngine {
  public:
    /// One result row.
    struct Row {
        /// The event's time, seconds since the Unix epoch.
        double ts = 0;
        /// Never absent; empty when the column is NULL.
        std::string source;
        std::optional<std::string> app;
        std::optional<std::string> person;
        std::optional<std::string> title;
        std::optional<std::string> url;
        /// The start of the body; for active threads the number of events of the group.
        std::optional<std::string> snippet;

        bool operator==(const Row&) const = default;
    };

    explicit QueryEngine(MnemoraStore& store) : store_(&store) {}

    /// Events about a free text: the keyword and the semantic ranking, fused by reciprocal rank
    /// (Cormack, Clarke, Büttcher, SIGIR 2009, k = 60). At most `limit` rows, best first, each
    /// with the first 1,600 characters of its body; equal scores in the order in which the
    /// rankings name them, keywords first. A negative limit counts as 0; of a query longer than
    /// 50,000 characters the words behind them are not looked up.
    [[nodiscard]] std::vector<Row> searchMemory(const std::string& query, std::int64_t limit);

    /// The newest events with the first 600 characters of their bodies. A negative limit means
    /// all of them.
    [[nodiscard]] std::vector<Row> latestContext(std::int64_t limit);

    /// One row for each person, title or application seen in the last `hours`, newest first; the
    /// snippet is the number of its events. A negative limit means all of them.
    [[nodiscard]] std::vector<Row> activeThreads(double hours, std::int64_t limit);

    /// Free text as an FTS5 expression: its words as quoted strings joined by OR; a text without
    /// any letter or number becomes one quoted string as it stands.
    [[nodiscard]] static std::string ftsSanitize(std::string_view text);

  private:
    /// Ids that match any word of the query, best first by bm25.
    [[nodiscard]] std::vector<std::int64_t> keywordIDs(const std::string& query,
                                                       std::int64_t limit);
    [[nodiscard]] std::vector<std::int64_t> semanticIDs(const std::string& query,
                                                        std::int64_t limit);
    [[nodiscard]] std::vector<Row> fetchRows(const std::vector<std::int64_t>& ids);

    MnemoraStore* store_;
};

} // namespace mnemora
