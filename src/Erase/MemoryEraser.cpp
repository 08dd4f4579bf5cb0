#include "Erase/MemoryEraser.h"

#include "Store/DatabaseFile.h"
#include "Store/Statement.h"

#include <sqlite3.h>

namespace mnemora {
namespace {

bool run(sqlite3* db, const char* sql) {
    return sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

bool runFor(sqlite3* db, const char* sql, const TimeRange& range) {
    const Statement statement(db, sql);
    if (!statement)
        return false;
    statement.bind(1, range.from);
    statement.bind(2, range.until);
    return statement.stepToDone();
}

} // namespace

void MemoryEraser::Close::operator()(sqlite3* db) const {
    sqlite3_close(db);
}

MemoryEraser::MemoryEraser(const std::filesystem::path& database,
                           std::chrono::milliseconds patience) {
    sqlite3* db = nullptr;
    // Never creates one: there would be nothing to erase.
    sqlite3_open_v2(database.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr);
    db_.reset(db);
    sqlite3_busy_timeout(db, static_cast<int>(patience.count()));
    // What is deleted becomes zeros at once, also where rewriting the file fails later.
    run(db, "PRAGMA secure_delete=ON;");
}

std::optional<RangeContents> MemoryEraser::contents(const TimeRange& range) const {
    const Statement statement(db_.get(),
                              "SELECT count(*), coalesce(sum(kind = 'meeting'), 0), min(ts), "
                              "max(ts) FROM events WHERE ts >= ? AND ts < ?;");
    if (!statement)
        return std::nullopt;
    statement.bind(1, range.from);
    statement.bind(2, range.until);
    if (!statement.stepToRow())
        return std::nullopt;
    return RangeContents{.events = sqlite3_column_int64(statement.get(), 0),
                         .ofMeetings = sqlite3_column_int64(statement.get(), 1),
                         .first = sqlite3_column_double(statement.get(), 2),
                         .last = sqlite3_column_double(statement.get(), 3)};
}

Erasure MemoryEraser::erase(const TimeRange& range) const {
    using Outcome = Erasure::Outcome;
    const auto before = contents(range);
    if (!before)
        return {.outcome = Outcome::unchanged, .reason = reason()};
    // Without events too: vectors of erased ones may be there, and words in the index.
    if (const auto hindrance = eraseRows(range))
        return {.outcome = before->events > 0 ? Outcome::unchanged : Outcome::remainsLeft,
                .reason = *hindrance};
    // Free pages, and what may stand in unused parts of others from before, go by writing
    // everything anew; the log, which holds old and new pages alike, by emptying it.
    const bool isRewritten = run(db_.get(), "VACUUM;");
    const std::string hindrance = reason();
    if (!emptyLog())
        return {.outcome = Outcome::remainsLeft, .reason = reason()};
    if (!isRewritten)
        return {.outcome = Outcome::remainsLeft, .reason = hindrance};
    return {.outcome = Outcome::erased, .reason = {}};
}

std::optional<std::string> MemoryEraser::eraseRows(const TimeRange& range) const {
    sqlite3* db = db_.get();
    // Single deletions would leave the words in the index's older segments, beside a note that
    // they are deleted; only building it anew forgets them.
    if (run(db, "BEGIN IMMEDIATE;") &&
        runFor(db, "DELETE FROM events WHERE ts >= ? AND ts < ?;", range) &&
        run(db, "DELETE FROM embeddings WHERE event_id NOT IN (SELECT id FROM events);") &&
        run(db, "INSERT INTO events_fts(events_fts) VALUES('rebuild');") && run(db, "COMMIT;"))
        return std::nullopt;
    const std::string hindrance = reason(); // which the next statement replaces
    run(db, "ROLLBACK;");
    return hindrance;
}

bool MemoryEraser::emptyLog() const {
    return sqlite3_wal_checkpoint_v2(db_.get(), "main", SQLITE_CHECKPOINT_TRUNCATE, nullptr,
                                     nullptr) == SQLITE_OK;
}

std::string MemoryEraser::reason() const {
    return databaseError(db_.get());
}

} // namespace mnemora
