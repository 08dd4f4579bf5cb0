// Fuzz target: every text that holds a word becomes an expression that the full-text index
// understands. One without any stands as it is, and may mean nothing to the index.

#include "Recall/QueryEngine.h"
#include "fuzz/FuzzInput.h"

#include <memory>
#include <sqlite3.h>
#include <string>

namespace {

using mnemora::fuzz::require;

struct Close {
    void operator()(sqlite3* db) const { sqlite3_close(db); }
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};

std::unique_ptr<sqlite3, Close> indexInMemory() {
    sqlite3* db = nullptr;
    require(sqlite3_open(":memory:", &db) == SQLITE_OK);
    require(sqlite3_exec(db,
                         "CREATE VIRTUAL TABLE t USING fts5(title, body, person);"
                         "INSERT INTO t VALUES ('Inbox', 'a word or NEAR two', 'Ann');",
                         nullptr, nullptr, nullptr) == SQLITE_OK);
    return std::unique_ptr<sqlite3, Close>(db);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const auto db = indexInMemory();
    const std::string text(reinterpret_cast<const char*>(data), size);
    const std::string expression = mnemora::QueryEngine::ftsSanitize(text);
    sqlite3_stmt* prepared = nullptr;
    require(sqlite3_prepare_v2(db.get(), "SELECT rowid FROM t WHERE t MATCH ? ORDER BY bm25(t)", -1,
                               &prepared, nullptr) == SQLITE_OK);
    const std::unique_ptr<sqlite3_stmt, Close> statement(prepared);
    sqlite3_bind_text(prepared, 1, expression.c_str(), -1, SQLITE_STATIC);
    const int result = sqlite3_step(prepared);
    const bool holdsNoWord = expression == "\"" + text + "\"";
    require(result == SQLITE_ROW || result == SQLITE_DONE ||
            (holdsNoWord && result == SQLITE_ERROR));
    return 0;
}
