#pragma once
// A store in a folder of its own, and a second connection that looks at its file from outside.

#include "Store/MnemoraStore.h"
#include "fakes/FakeClock.h"
#include "fakes/FakeEmbedder.h"
#include "fakes/TemporaryHome.h"

#include <gtest/gtest.h>
#include <memory>
#include <set>
#include <sqlite3.h>
#include <string>
#include <vector>

namespace mnemora::test {

/// Runs SQL on the store's file over a connection of its own; each row's columns joined by "|",
/// NULL written as "NULL".
inline std::vector<std::string> outside(const std::string& sql) {
    sqlite3* db = nullptr;
    EXPECT_EQ(sqlite3_open(MnemoraStore::dbPath().c_str(), &db), SQLITE_OK);
    sqlite3_busy_timeout(db, 5000);
    std::vector<std::string> rows;
    const auto collect = [](void* list, int count, char** values, char** /*names*/) {
        std::string row;
        for (int i = 0; i < count; ++i)
            row += (i > 0 ? "|" : "") + std::string(values[i] != nullptr ? values[i] : "NULL");
        static_cast<std::vector<std::string>*>(list)->push_back(row);
        return 0;
    };
    char* error = nullptr;
    EXPECT_EQ(sqlite3_exec(db, sql.c_str(), collect, &rows, &error), SQLITE_OK)
        << sql << ": " << (error != nullptr ? error : "");
    sqlite3_free(error);
    sqlite3_close(db);
    return rows;
}

/// Whether the file is sound: SQLite's own check and the full-text index's.
inline void expectSound() {
    EXPECT_EQ(outside("PRAGMA integrity_check;"), std::vector<std::string>{"ok"});
    outside("INSERT INTO events_fts(events_fts, rank) VALUES('integrity-check', 1);");
}

/// That it is sound, holds an event of each title that was reported as stored, and a vector of
/// every event; how many events there are.
inline std::size_t expectHolds(const std::vector<std::string>& reported) {
    expectSound();
    const auto titles = outside("SELECT title FROM events;");
    const std::set<std::string> stored(titles.begin(), titles.end());
    for (const auto& title : reported)
        EXPECT_TRUE(stored.contains(title)) << title << " was reported as stored";
    EXPECT_EQ(outside("SELECT count(*) FROM embeddings;").front(), std::to_string(titles.size()));
    return titles.size();
}

inline MnemoraEvent event(const std::string& title, double ts = 1'700'000'000) {
    MnemoraEvent made;
    made.ts = ts;
    made.source = "screen";
    made.kind = "window";
    made.title = title;
    return made;
}

/// A fresh folder and a clock that stands still; the store is made by `open`.
class StoreTest : public testing::Test {
  protected:
    MnemoraStore& open(std::unique_ptr<Embedder> embedder = std::make_unique<FakeEmbedder>()) {
        store_.reset();
        store_ = std::make_unique<MnemoraStore>(std::move(embedder));
        return *store_;
    }
    void close() { store_.reset(); }

    TemporaryHome home;
    ScopedFakeClock time;

  private:
    std::unique_ptr<MnemoraStore> store_;
};

} // namespace mnemora::test
