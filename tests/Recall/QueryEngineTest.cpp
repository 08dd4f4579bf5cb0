#include "Recall/QueryEngine.h"
#include "Recall/PlainRecall.h"
#include "Store/StoreFixture.h"
#include "fakes/CapturedStderr.h"

#include <random>

namespace mnemora::test {
namespace {

using Row = QueryEngine::Row;

std::vector<std::string> titles(const std::vector<Row>& rows) {
    std::vector<std::string> list;
    for (const Row& row : rows)
        list.push_back(row.title.value_or("-"));
    return list;
}
using Titles = std::vector<std::string>;

TEST(FtsExpression, QuotesWordsAndJoinsThemWithOr) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"Q3, budget plan!", R"("Q3" OR "budget" OR "plan")"},
        {"don't e-mail", R"("don" OR "t" OR "e" OR "mail")"},
        {"naïve café", R"("naïve" OR "café")"},
        {"cafe\u0301 x_y", "\"cafe\u0301\" OR \"x\" OR \"y\""},
        {"同 Ⅷ½²①🙂7️⃣", "\"同\" OR \"Ⅷ½²①\" OR \"7️⃣\""},
        {"a OR b \"c\" NEAR(d)", R"("a" OR "OR" OR "b" OR "c" OR "NEAR" OR "d")"},
        {"again again", R"("again" OR "again")"},
        {"?!", R"("?!")"},
        {"", R"("")"},
        {"\"", R"(""")"},
        // One character by Unicode's rules, with a quote in it that must not end the string.
        {"\u0D4E\" OR title:x", "\"\u0D4E\"\"\" OR \"OR\" OR \"title\" OR \"x\""},
    };
    for (const auto& [text, expression] : cases)
        EXPECT_EQ(QueryEngine::ftsSanitize(text), expression);
}

class QueryEngineTest : public StoreTest {
  protected:
    void add(const std::string& columns, const std::string& values) {
        outside("INSERT INTO events (" + columns + ") VALUES " + values + ";");
    }
};

TEST_F(QueryEngineTest, WithoutAModelTheKeywordsDecide) {
    QueryEngine engine(open(std::make_unique<NoEmbedder>()));
    add("ts, source, title, body",
        "(1, 's', 'one', 'plum'), (2, 's', 'two', 'plum plum plum'), (3, 's', 'three', 'pear')");
    EXPECT_EQ(titles(engine.searchMemory("PLUM!", 10)), (Titles{"two", "one"}));
    EXPECT_EQ(titles(engine.searchMemory("plum", 1)), Titles{"two"});
    const CapturedStderr output;
    for (const char* nothing : {"quince", "", "?!\"", "*", "\"\"\"", "^ : - +"})
        EXPECT_TRUE(engine.searchMemory(nothing, 10).empty()) << nothing;
    EXPECT_TRUE(engine.searchMemory("plum", 0).empty());
    EXPECT_TRUE(engine.searchMemory("plum", -3).empty());
    EXPECT_TRUE(engine.searchMemory("plum", INT64_MIN).empty());
    EXPECT_EQ(titles(engine.searchMemory("plum", INT64_MAX)), (Titles{"two", "one"}));
    EXPECT_EQ(output.text(), "");
}

TEST_F(QueryEngineTest, CutsBodiesByCharactersAndReadsNullsAsAbsent) {
    QueryEngine engine(open(std::make_unique<NoEmbedder>()));
    std::string longBody = "needle ";
    while (longBody.size() < 4000)
        longBody += "é";
    add("ts, source, title, body",
        "(1, 's', NULL, 'needle'), (2, 's', 'T', NULL), (3, 's', '', '" + longBody + "')");
    const auto hits = engine.searchMemory("needle", 5);
    ASSERT_EQ(hits.size(), 2U);
    EXPECT_EQ(hits[0].title, std::nullopt);
    EXPECT_EQ(hits[1].title, "");
    EXPECT_EQ(hits[1].snippet, longBody.substr(0, 7 + 2 * (1600 - 7)));
    const auto latest = engine.latestContext(5);
    ASSERT_EQ(latest.size(), 3U);
    EXPECT_EQ(latest[0].snippet, longBody.substr(0, 7 + 2 * (600 - 7)));
    EXPECT_EQ(latest[1].snippet, std::nullopt);
    EXPECT_EQ(latest[1].app, std::nullopt);
    EXPECT_EQ(engine.latestContext(-1).size(), 3U);
    EXPECT_TRUE(engine.latestContext(0).empty());
}

TEST_F(QueryEngineTest, GroupsActiveThreadsByPersonTitleOrApplication) {
    QueryEngine engine(open(std::make_unique<NoEmbedder>()));
    const auto hoursAgo = [&](double hours) {
        return std::to_string(time.clock->moment - hours * 3600);
    };
    add("ts, source, app, person, title, url",
        "(" + hoursAgo(5) + ", 'a', 'Mail', 'Ann', 'old', 'u1'), (" + hoursAgo(1) +
            ", 'b', 'Chat', 'Ann', 'new', 'u2'), (" + hoursAgo(3) +
            ", 'a', 'Mail', 'Ann', 'mid', NULL), (" + hoursAgo(2) +
            ", 'a', 'Mail', NULL, 'Inbox', NULL), (" + hoursAgo(7) +
            ", 'a', 'Mail', NULL, 'Inbox', NULL), (" + hoursAgo(4) +
            ", 'a', NULL, NULL, NULL, NULL), (" + hoursAgo(4.5) +
            ", 'a', NULL, NULL, NULL, NULL), (" + hoursAgo(0.5) +
            ", 'a', 'Term', NULL, NULL, NULL)");
    const auto rows = engine.activeThreads(6, 15);
    ASSERT_EQ(rows.size(), 4U);
    EXPECT_EQ(rows[0].app, "Term");
    const Row ann{.ts = time.clock->moment - 3600,
                  .source = "b",
                  .app = "Chat",
                  .person = "Ann",
                  .title = "new",
                  .url = "u2",
                  .snippet = "3"};
    EXPECT_EQ(rows[1], ann);
    EXPECT_EQ(rows[2].title, "Inbox");
    EXPECT_EQ(rows[2].snippet, "1");
    EXPECT_EQ(rows[3].snippet, "2");
    EXPECT_EQ(rows[3].person, std::nullopt);
    EXPECT_EQ(engine.activeThreads(6, 2).size(), 2U);
    EXPECT_EQ(engine.activeThreads(1e300, -1).size(), 4U);
    EXPECT_TRUE(engine.activeThreads(0, 15).empty());
    EXPECT_TRUE(engine.activeThreads(-6, 15).empty());
}

/// Texts of every kind, drawn with a fixed seed.
class Corpus {
  public:
    std::vector<PlainEvent> events(std::size_t count) {
        std::vector<PlainEvent> list(count);
        for (std::size_t i = 0; i < count; ++i) {
            MnemoraEvent& event = list[i].event;
            list[i].id = static_cast<std::int64_t>(i + 1);
            event.ts = static_cast<double>(i);
            event.source = "screen";
            event.kind = "window";
            event.title = text(4);
            event.body = text(40);
            event.person = text(2);
        }
        return list;
    }
    std::string query() { return *text(5, false); }

  private:
    std::optional<std::string> text(std::size_t most, bool mayBeAbsent = true) {
        const auto kind = random_() % 8;
        if (mayBeAbsent && kind == 0)
            return std::nullopt;
        std::string words;
        for (std::size_t left = kind == 1 && mayBeAbsent ? 0 : 1 + random_() % most; left > 0;
             --left)
            words += vocabulary[random_() % std::size(vocabulary)] + separators[random_() % 4];
        return words;
    }

    static inline const std::string vocabulary[] = {
        "budget", "Budget",  "plan",   "naïve",    "CAFÉ",    "cafe\u0301", "e\u0301t\u00e9",
        "日本",   "会議",    "😃",     "Q3",       "2025",    "Ann",        "the",
        "the",    "the",     "straße", "Ωmega",    "no",      "x1",         "ü",
        "mail",   "release", "notes",  "deadline", "invoice", "tab",        "👩‍👩‍👧"};
    static inline const std::string separators[] = {" ", ", ", " - ", "\n"};
    std::mt19937 random_{42};
};

TEST_F(QueryEngineTest, AgreesWithAPlainImplementation) {
    Corpus corpus;
    auto events = corpus.events(400);
    auto& store = open();
    FakeEmbedder embedder;
    for (PlainEvent& entry : events) {
        ASSERT_TRUE(store.insert(entry.event, -1e12));
        std::string basis;
        for (const auto* part : {&entry.event.person, &entry.event.title, &entry.event.body})
            if (*part && !(*part)->empty())
                basis += (basis.empty() ? "" : ". ") + **part;
        entry.vector = embedder.embed(basis).value_or(std::vector<float>());
    }
    const PlainRecall plain(events);
    QueryEngine engine(store);
    for (int i = 0; i < 60; ++i) {
        const std::string query = corpus.query();
        for (const std::size_t limit : {1U, 10U, 25U}) {
            std::vector<double> expected;
            const auto vector = embedder.embed(query).value_or(std::vector<float>());
            for (const std::int64_t id : plain.search(query, vector, limit))
                expected.push_back(static_cast<double>(id - 1));
            std::vector<double> found;
            for (const Row& row : engine.searchMemory(query, static_cast<std::int64_t>(limit)))
                found.push_back(row.ts);
            ASSERT_EQ(found, expected) << query << " limit " << limit;
        }
    }
}

} // namespace
} // namespace mnemora::test
