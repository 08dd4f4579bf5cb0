#include "Recall/QueryEngine.h"

#include "Platform/CoreServices.h"
#include "Text/Characters.h"

#include <algorithm>
#include <limits>
#include <unicode/uchar.h>
#include <unordered_map>

namespace mnemora {
namespace {

/// Candidates taken from each ranking at the least, so that a short answer is still well chosen.
constexpr std::int64_t minCandidates = 30;
/// Damps the weight of the first ranks in the fusion.
constexpr double fusionConstant = 60;
constexpr double secondsPerHour = 3600;
/// The index copies its list of words for each word of a query, so a text of megabytes would keep
/// it busy for minutes. This many characters are far more than anybody asks with.
constexpr long long maxQueryCharacters = 50'000;

bool isWordCharacter(std::string_view character) {
    const auto c = static_cast<UChar32>(firstCodePoint(character));
    return u_hasBinaryProperty(c, UCHAR_ALPHABETIC) != 0 ||
           u_getIntPropertyValue(c, UCHAR_NUMERIC_TYPE) != U_NT_NONE;
}

std::int64_t candidateCount(std::int64_t limit) {
    constexpr auto most = std::numeric_limits<std::int64_t>::max();
    return limit > most / 2 ? most : std::max(2 * limit, minCandidates);
}

/// A few letters take the mark that follows them into their own character (Prepend, UAX 29), a
/// quote too, which the index's strings hold doubled.
void appendInString(std::string& expression, std::string_view character) {
    for (const char c : character)
        expression.append(c == '"' ? 2 : 1, c);
}

/// Reads a row whose columns from `first` on are time, source, app, person, title, url, snippet.
QueryEngine::Row rowWithSnippet(const RowReader& row, int first = 0) {
    return {.ts = row.real(first),
            .source = row.text(first + 1).value_or(""),
            .app = row.text(first + 2),
            .person = row.text(first + 3),
            .title = row.text(first + 4),
            .url = row.text(first + 5),
            .snippet = row.text(first + 6)};
}

/// Scores by id in the order in which the rankings first name them.
class FusionTable {
  public:
    void add(const std::vector<std::int64_t>& ranking) {
        for (size_t i = 0; i < ranking.size(); ++i) {
            const auto [place, isNew] = places_.try_emplace(ranking[i], entries_.size());
            if (isNew)
                entries_.push_back({.id = ranking[i], .score = 0});
            entries_[place->second].score += 1 / (fusionConstant + static_cast<double>(i + 1));
        }
    }

    [[nodiscard]] std::vector<std::int64_t> best(std::int64_t limit) && {
        std::ranges::stable_sort(entries_, std::ranges::greater{}, &Entry::score);
        std::vector<std::int64_t> ids;
        for (const Entry& entry : entries_) {
            if (std::ssize(ids) >= limit)
                break;
            ids.push_back(entry.id);
        }
        return ids;
    }

  private:
    struct Entry {
        std::int64_t id;
        double score;
    };
    std::vector<Entry> entries_;
    std::unordered_map<std::int64_t, size_t> places_;
};

} // namespace

std::string QueryEngine::ftsSanitize(std::string_view text) {
    std::string expression;
    bool inWord = false;
    forEachCharacter(text, [&](std::string_view character) {
        const bool isWord = isWordCharacter(character);
        if (isWord && !inWord)
            expression += expression.empty() ? "\"" : " OR \"";
        else if (!isWord && inWord)
            expression += '"';
        if (isWord)
            appendInString(expression, character);
        inWord = isWord;
        return true;
    });
    if (inWord)
        expression += '"';
    if (expression.empty())
        expression.append("\"").append(text).append("\"");
    return expression;
}

std::vector<std::int64_t> QueryEngine::keywordIDs(const std::string& query, std::int64_t limit) {
    return store_->query("SELECT events_fts.rowid FROM events_fts\n"
                         "WHERE events_fts MATCH ? ORDER BY bm25(events_fts) LIMIT ?;",
                         {ftsSanitize(firstCharacters(query, maxQueryCharacters)), limit},
                         [](const RowReader& row) { return row.integer(0); });
}

std::vector<std::int64_t> QueryEngine::semanticIDs(const std::string& query, std::int64_t limit) {
    std::vector<std::int64_t> ids;
    if (!store_->embedder().isAvailable())
        return ids;
    const auto vector = store_->embedder().embed(query);
    if (!vector || vector->empty())
        return ids;
    for (const SemanticMatch& match : store_->semanticTopK(*vector, limit))
        ids.push_back(match.id);
    return ids;
}

std::vector<QueryEngine::Row> QueryEngine::searchMemory(const std::string& query,
                                                        std::int64_t limit) {
    if (limit <= 0)
        return {};
    const std::int64_t candidates = candidateCount(limit);
    FusionTable fusion;
    fusion.add(keywordIDs(query, candidates));
    fusion.add(semanticIDs(query, candidates));
    return fetchRows(std::move(fusion).best(limit));
}

std::vector<QueryEngine::Row> QueryEngine::fetchRows(const std::vector<std::int64_t>& ids) {
    if (ids.empty())
        return {};
    std::string sql = "SELECT id, ts, source, app, person, title, url, substr(body, 1, 1600)\n"
                      "FROM events WHERE id IN (?";
    for (size_t i = 1; i < ids.size(); ++i)
        sql += ",?";
    sql += ");";
    std::unordered_map<std::int64_t, Row> rowsById;
    const std::vector<BindValue> bind(ids.begin(), ids.end());
    store_->query(sql, bind, [&](const RowReader& row) {
        return rowsById.insert_or_assign(row.integer(0), rowWithSnippet(row, 1)).second;
    });
    std::vector<Row> rows;
    for (const std::int64_t id : ids)
        if (const auto found = rowsById.find(id); found != rowsById.end())
            rows.push_back(found->second);
    return rows;
}

std::vector<QueryEngine::Row> QueryEngine::latestContext(std::int64_t limit) {
    return store_->query("SELECT ts, source, app, person, title, url, substr(body, 1, 600)\n"
                         "FROM events ORDER BY ts DESC LIMIT ?;",
                         {limit}, [](const RowReader& row) { return rowWithSnippet(row); });
}

std::vector<QueryEngine::Row> QueryEngine::activeThreads(double hours, std::int64_t limit) {
    const double cutoff = coreServices().clock->now() + hours * -secondsPerHour;
    return store_->query("SELECT max(ts) AS ts, source, app, person, title, url, count(*) AS c\n"
                         "FROM events WHERE ts >= ?\n"
                         "GROUP BY coalesce(person, title, app)\n"
                         "ORDER BY ts DESC LIMIT ?;",
                         {cutoff, limit}, [](const RowReader& row) { return rowWithSnippet(row); });
}

} // namespace mnemora
