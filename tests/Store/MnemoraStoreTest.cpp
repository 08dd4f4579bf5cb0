#include "Store/StoreFixture.h"
#include "fakes/CapturedStderr.h"

#include <sys/stat.h>

namespace mnemora::test {
namespace {

using Rows = std::vector<std::string>;

TEST_F(StoreTest, KeepsTheSchemaAsItIsWritten) {
    const std::vector<std::string> expected = {
        "CREATE TABLE events (\n    id INTEGER PRIMARY KEY AUTOINCREMENT,\n    ts REAL NOT NULL, "
        "source TEXT NOT NULL, app TEXT, bundle TEXT,\n    kind TEXT, person TEXT, title TEXT, "
        "url TEXT, body TEXT, hash TEXT\n)",
        "CREATE INDEX idx_events_ts ON events(ts)",
        "CREATE INDEX idx_events_hash ON events(hash)",
        "CREATE VIRTUAL TABLE events_fts USING fts5(\n    title, body, person, "
        "content='events', content_rowid='id'\n)",
        "CREATE TRIGGER events_ai AFTER INSERT ON events BEGIN\n    INSERT INTO "
        "events_fts(rowid, title, body, person)\n    VALUES (new.id, new.title, new.body, "
        "new.person);\nEND",
        "CREATE TABLE embeddings (\n    event_id INTEGER PRIMARY KEY, dim INTEGER NOT NULL, vec "
        "BLOB NOT NULL\n)"};
    const std::string ours = "SELECT sql FROM sqlite_master WHERE name IN ('events', "
                             "'idx_events_ts', 'idx_events_hash', 'events_fts', 'events_ai', "
                             "'embeddings') ORDER BY rowid;";
    open().insert(event("kept"), 90);
    EXPECT_EQ(outside(ours), expected);
    EXPECT_EQ(outside("PRAGMA journal_mode;"), Rows{"wal"});
    open();
    EXPECT_EQ(outside(ours), expected);
    EXPECT_EQ(outside("SELECT title FROM events;"), Rows{"kept"});
}

TEST_F(StoreTest, IsReadableByItsOwnerOnlyWhateverTheUmask) {
    for (const mode_t mask : {0000, 0777}) {
        const TemporaryHome another;
        const mode_t former = umask(mask);
        open().insert(event("secret"), 90);
        umask(former);
        for (const char* name :
             {"", "mnemora.sqlite", "mnemora.sqlite-wal", "mnemora.sqlite-shm"}) {
            struct stat info {};
            ASSERT_EQ(stat((another.dataFolder() / name).c_str(), &info), 0) << name;
            EXPECT_EQ(info.st_mode & 07777, *name == '\0' ? 0700U : 0600U) << name;
        }
        close();
    }
}

TEST_F(StoreTest, MapsRowsAndBindsEveryKindOfValue) {
    auto& store = open();
    const auto text = [](const RowReader& row) { return row.text(0); };
    const auto show = [&](const std::string& sql, const std::vector<BindValue>& bind) {
        return store.query(sql, bind, text);
    };
    using Texts = std::vector<std::optional<std::string>>;
    EXPECT_EQ(show("SELECT ?1 || '/' || ?2 || '/' || ?3;", {"é", 1.5, std::int64_t{7}}),
              Texts{"é/1.5/7"});
    EXPECT_EQ(show("SELECT ?1 UNION ALL SELECT ?2;", {std::monostate{}}),
              (Texts{std::nullopt, std::nullopt}));
    EXPECT_EQ(show("SELECT ?;", {std::string("cut\0here", 8)}), Texts{"cut"});
    EXPECT_EQ(show("SELECT CAST(x'61FF00E9' AS TEXT);", {}), Texts{"a\uFFFD\uFFFD"});
    EXPECT_EQ(show("SELECT 3;", {}), Texts{"3"});
}

TEST_F(StoreTest, SaysOnceThatAStatementIsWrong) {
    auto& store = open();
    const CapturedStderr output;
    EXPECT_TRUE(store.query("SELEC 1;", {}, [](const RowReader&) { return 1; }).empty());
    EXPECT_EQ(output.text(), "[mnemora][error] prepare failed: near \"SELEC\": syntax error\n");
}

TEST(ContentIdentity, CoversContentAndNothingElse) {
    MnemoraEvent base = event("Inbox");
    base.app = "Mail";
    base.body = "caf\u00E9";
    const auto with = [&](auto change) {
        MnemoraEvent other = base;
        change(other);
        return other.hash();
    };
    EXPECT_EQ(base.hash(), with([](auto& e) { e.ts = 5; }));
    EXPECT_EQ(base.hash(), with([](auto& e) { e.person = "P"; }));
    EXPECT_EQ(base.hash(), with([](auto& e) { e.bundle = "b"; }));
    EXPECT_EQ(base.hash(), with([](auto& e) { e.url = ""; }));
    EXPECT_EQ(base.hash(), with([](auto& e) { e.body = "cafe\u0301"; }));
    EXPECT_NE(base.hash(), with([](auto& e) { e.source = "browser"; }));
    EXPECT_NE(base.hash(), with([](auto& e) { e.kind = "page"; }));
    EXPECT_NE(base.hash(), with([](auto& e) { e.app = "mail"; }));
    EXPECT_NE(base.hash(), with([](auto& e) { e.title = "Outbox"; }));
    EXPECT_NE(base.hash(), with([](auto& e) { e.url = "u"; }));
    EXPECT_NE(base.hash(), with([](auto& e) { e.title.reset(), e.url = "Inbox"; }));
    const std::string hash = base.hash();
    EXPECT_EQ(std::to_string(std::stoll(hash)), hash);
}

TEST_F(StoreTest, DropsARepeatWithinTheWindow) {
    auto& store = open();
    const double now = time.clock->moment;
    EXPECT_TRUE(store.insert(event("A", now), 90));
    MnemoraEvent repeat = event("A", now + 1);
    repeat.person = "someone";
    repeat.bundle = "app.id";
    repeat.app = "";
    EXPECT_FALSE(store.insert(repeat, 90));
    EXPECT_TRUE(store.insert(event("B", now), 90));
    time.clock->moment = now + 90;
    EXPECT_FALSE(store.insert(event("A", now + 90), 90));
    time.clock->moment = now + 91;
    EXPECT_TRUE(store.insert(event("A", now + 91), 90));
    EXPECT_EQ(outside("SELECT title FROM events ORDER BY id;"), (Rows{"A", "B", "A"}));
}

TEST_F(StoreTest, WritesWholeRowsWithIndexAndVector) {
    auto& store = open();
    MnemoraEvent bare;
    bare.ts = 1.25;
    bare.source = "screen";
    bare.kind = "window";
    MnemoraEvent full = event("Title");
    full.app = "App";
    full.person = "Ann";
    full.body = "";
    ASSERT_TRUE(store.insert(bare, 90));
    ASSERT_TRUE(store.insert(full, 90));
    EXPECT_EQ(outside("SELECT id, ts, source, app, bundle, kind, person, title, url, body, hash "
                      "FROM events;"),
              (Rows{"1|1.25|screen|NULL|NULL|window|NULL|NULL|NULL|NULL|" + bare.hash(),
                    "2|1700000000.0|screen|App|NULL|window|Ann|Title|NULL||" + full.hash()}));
    EXPECT_EQ(outside("SELECT rowid FROM events_fts WHERE events_fts MATCH 'ann AND title';"),
              Rows{"2"});
    EXPECT_EQ(outside("SELECT event_id, dim, length(vec) FROM embeddings;"), Rows{"2|8|32"});
    expectSound();
}

TEST_F(StoreTest, BackfillsWhatHasNoVector) {
    open(std::make_unique<NoEmbedder>());
    outside("INSERT INTO events (ts, source, person, title, body) VALUES (1, 's', 'Ann', NULL, "
            "'text'), (2, 's', NULL, NULL, NULL), (3, 's', '', 'refused', '');");
    {
        const CapturedStderr output;
        open(std::make_unique<NoEmbedder>()).backfillEmbeddings();
        EXPECT_EQ(output.text(), "");
    }
    // Texts without a vector are counted again at each start.
    for (const char* line :
         {"[mnemora] backfilled 3 embeddings\n", "[mnemora] backfilled 2 embeddings\n"}) {
        const CapturedStderr output;
        open().backfillEmbeddings();
        EXPECT_EQ(output.text(), line);
    }
    EXPECT_EQ(outside("SELECT event_id FROM embeddings;"), Rows{"1"});
    const auto joined = FakeEmbedder().embed("Ann. text").value();
    const auto found = open().semanticTopK(joined, 1);
    ASSERT_EQ(found.size(), 1U);
    EXPECT_FLOAT_EQ(found.front().score, 1);
}

TEST_F(StoreTest, ScoresDamagedAndForeignVectorsAsZero) {
    auto& store = open();
    outside("INSERT INTO embeddings VALUES (4, 1, x'0000803F'), (5, 9, x'0000803F0102'), "
            "(6, 1, x'010203'), (7, 1, x''), (8, 1, x'000080BF'), (9, 2, x'0000803F0000803F'), "
            "(10, 1, x'0000C07F');");
    using List = std::vector<SemanticMatch>;
    const std::vector<float> one = {2};
    EXPECT_EQ(store.semanticTopK(one, 10), (List{{4, 1}, {5, 1}, {9, 0}, {10, 0}, {8, -1}}));
    EXPECT_EQ(store.semanticTopK(one, 1), (List{{4, 1}}));
    EXPECT_EQ(store.semanticTopK(std::vector<float>{0}, 3), (List{{4, 0}, {5, 0}, {8, 0}}));
    EXPECT_TRUE(store.semanticTopK(one, 0).empty());
    EXPECT_TRUE(store.semanticTopK(one, -1).empty());
}

} // namespace
} // namespace mnemora::test
