// What the store and the search cost beside their floors: the same statements in a bare loop, and
// the vector extension of SQLite. All times are medians of runs that alternate, in one process.

#include "Linux/Embedding/LazySentenceModel.h"
#include "Platform/CoreServices.h"
#include "Platform/SystemClock.h"
#include "Recall/QueryEngine.h"
#include "Store/Memories.h"
#include "Store/MnemoraStore.h"
#include "Support/Installation.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>

namespace mnemora::bench {
namespace {

/// A model of no cost, for measuring everything around it.
struct FixedEmbedder : Embedder {
    std::vector<float> answer;
    explicit FixedEmbedder(std::vector<float> vector) : answer(std::move(vector)) {}
    [[nodiscard]] int dimension() const override { return static_cast<int>(answer.size()); }
    [[nodiscard]] bool isAvailable() const override { return !answer.empty(); }
    [[nodiscard]] std::optional<std::vector<float>> embed(std::string_view /*text*/) override {
        return answer;
    }
};

double milliseconds(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    const auto end = std::chrono::steady_clock::now();
    return std::chrono::duration<double, std::milli>(end - start).count();
}

/// Medians of all contenders, each run once a round after a round that warms up.
std::vector<double> alternate(const std::vector<std::function<void()>>& contenders, int rounds) {
    std::vector<std::vector<double>> times(contenders.size());
    for (int round = 0; round <= rounds; ++round)
        for (std::size_t i = 0; i < contenders.size(); ++i)
            if (const double time = milliseconds(contenders[i]); round > 0)
                times[i].push_back(time);
    std::vector<double> medians;
    for (auto& list : times) {
        std::ranges::nth_element(list, list.begin() + rounds / 2);
        medians.push_back(list[static_cast<std::size_t>(rounds) / 2]);
    }
    return medians;
}

/// A bare connection to the current database, mapped or not.
class Connection {
  public:
    explicit Connection(const std::string& path, bool mapped) {
        sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
        sqlite3_exec(db_, mapped ? "PRAGMA mmap_size=68719476736;" : "PRAGMA mmap_size=0;", nullptr,
                     nullptr, nullptr);
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection() { sqlite3_close(db_); }

    [[nodiscard]] sqlite3* get() const { return db_; }

    /// Steps a statement to its end and touches each row's blob in the given column, if any.
    void step(const std::string& sql, int blobColumn = -1, const char* text = nullptr) const {
        sqlite3_stmt* statement = nullptr;
        sqlite3_prepare_v2(db_, sql.c_str(), -1, &statement, nullptr);
        if (text != nullptr)
            sqlite3_bind_text(statement, 1, text, -1, SQLITE_TRANSIENT);
        volatile unsigned char touched = 0;
        while (sqlite3_step(statement) == SQLITE_ROW)
            if (blobColumn >= 0)
                touched =
                    *static_cast<const unsigned char*>(sqlite3_column_blob(statement, blobColumn));
        (void)touched;
        sqlite3_finalize(statement);
    }

  private:
    sqlite3* db_ = nullptr;
};

/// The same vectors in a table of the vector extension; null when it was not fetched.
std::unique_ptr<Connection> vectorExtension(int count) {
    const auto extension = installation::prefix() / "../../.deps/bench/vec0.so";
    if (!std::filesystem::exists(extension))
        return nullptr;
    const auto path = memoryOf(count) / "vec0.sqlite";
    const bool isNew = !std::filesystem::exists(path);
    auto connection = std::make_unique<Connection>(path, true);
    sqlite3_enable_load_extension(connection->get(), 1);
    if (sqlite3_load_extension(connection->get(), extension.c_str(), "sqlite3_vec_init", nullptr) !=
        SQLITE_OK)
        return nullptr;
    if (isNew) {
        const std::string fill =
            "CREATE VIRTUAL TABLE vectors USING vec0(v float[384] distance_metric=cosine);"
            "ATTACH '" +
            (memoryOf(count) / "Mnemora/mnemora.sqlite").string() +
            "' AS m;"
            "BEGIN; INSERT INTO vectors(rowid, v) SELECT event_id, vec FROM m.embeddings; "
            "COMMIT; DETACH m;";
        sqlite3_exec(connection->get(), fill.c_str(), nullptr, nullptr, nullptr);
    }
    return connection;
}

void nearest(sqlite3* db, const std::vector<float>& query) {
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(db, "SELECT rowid, distance FROM vectors WHERE v MATCH ? AND k = 30;", -1,
                       &statement, nullptr);
    sqlite3_bind_blob(statement, 1, query.data(), static_cast<int>(query.size() * 4),
                      SQLITE_TRANSIENT);
    int rows = 0;
    while (sqlite3_step(statement) == SQLITE_ROW)
        ++rows;
    sqlite3_finalize(statement);
    if (rows != 30)
        std::puts("  the vector extension gave no answer");
}

/// Brute force with the extension's function, over the very table that the store scans.
void nearestByFunction(sqlite3* db, const std::vector<float>& query) {
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(db,
                       "SELECT event_id, vec_distance_cosine(vec, ?) AS d FROM m.embeddings "
                       "ORDER BY d LIMIT 30;",
                       -1, &statement, nullptr);
    sqlite3_bind_blob(statement, 1, query.data(), static_cast<int>(query.size() * 4),
                      SQLITE_TRANSIENT);
    while (sqlite3_step(statement) == SQLITE_ROW)
        ;
    sqlite3_finalize(statement);
}

void measureScan(int count) {
    std::mt19937 random(99);
    const auto query = unitVector(random);
    MnemoraStore store(std::make_unique<FixedEmbedder>(query));
    const Connection mapped(MnemoraStore::dbPath(), true);
    const Connection unmapped(MnemoraStore::dbPath(), false);
    const auto extension = vectorExtension(count);
    const std::string statement = "SELECT event_id, vec FROM embeddings;";
    std::vector<std::function<void()>> contenders = {[&] { (void)store.semanticTopK(query, 30); },
                                                     [&] { mapped.step(statement, 1); },
                                                     [&] { unmapped.step(statement, 1); }};
    if (extension) {
        const std::string attach =
            "ATTACH '" + MnemoraStore::dbPath() + "' AS m; PRAGMA m.mmap_size=68719476736;";
        sqlite3_exec(extension->get(), attach.c_str(), nullptr, nullptr, nullptr);
        contenders.emplace_back([&] { nearest(extension->get(), query); });
        contenders.emplace_back([&] { nearestByFunction(extension->get(), query); });
    }
    const auto medians = alternate(contenders, 21);
    std::printf(
        "%8d events  semanticTopK %7.2f ms  floor mapped %7.2f (ratio %.2f)  unmapped %7.2f "
        "(ratio %.2f)",
        count, medians[0], medians[1], medians[0] / medians[1], medians[2],
        medians[0] / medians[2]);
    if (extension)
        std::printf("  sqlite-vec index %7.2f (ratio %.2f)  function %7.2f (ratio %.2f)",
                    medians[3], medians[0] / medians[3], medians[4], medians[0] / medians[4]);
    std::puts("");
}

void measureKeywords(int count) {
    MnemoraStore store(std::make_unique<FixedEmbedder>(std::vector<float>()));
    QueryEngine engine(store);
    const Connection bare(MnemoraStore::dbPath(), false);
    std::mt19937 random(5);
    for (const char* kind : {"one rare word", "three words", "common words"}) {
        std::string query = text(random, 24);
        if (kind[0] == 'o')
            query = "nmcb";
        if (kind[0] == 'c')
            query = "ab bb cb";
        const std::string match = QueryEngine::ftsSanitize(query);
        const auto medians = alternate(
            {[&] { (void)engine.searchMemory(query, 10); },
             [&] {
                 bare.step("SELECT events_fts.rowid FROM events_fts WHERE events_fts MATCH ? "
                           "ORDER BY bm25(events_fts) LIMIT 30;",
                           -1, match.c_str());
             }},
            15);
        std::printf(
            "%8d events  keywords, %-14s %7.2f ms with rows  bare statement %7.2f (ratio %.2f)\n",
            count, kind, medians[0], medians[1], medians[0] / medians[1]);
    }
}

void measureBackfill(int count) {
    std::mt19937 random(3);
    MnemoraStore store(std::make_unique<FixedEmbedder>(unitVector(random)));
    const Connection bare(MnemoraStore::dbPath(), false);
    const auto medians = alternate(
        {[&] { store.backfillEmbeddings(); },
         [&] {
             bare.step(
                 "SELECT e.id, e.person, e.title, e.body FROM events e\nLEFT JOIN embeddings em "
                 "ON em.event_id = e.id\nWHERE em.event_id IS NULL;");
         }},
        9);
    std::printf(
        "%8d events  backfill, nothing missing %7.2f ms  bare statement %7.2f (ratio %.2f)\n",
        count, medians[0], medians[1], medians[0] / medians[1]);
}

/// Stores events until the count is reached and says what one costs.
void measureInsert(const char* label, std::unique_ptr<Embedder> embedder, int count) {
    std::string folder = (std::filesystem::temp_directory_path() / "mnemora-bench.XXXXXX").string();
    setenv("XDG_DATA_HOME", mkdtemp(folder.data()), 1);
    std::uintmax_t bytes = 0;
    std::vector<double> each;
    double total = 0;
    {
        MnemoraStore store(std::move(embedder));
        std::mt19937 random(17);
        for (int i = 0; i < count; ++i) {
            MnemoraEvent event;
            event.ts = coreServices().clock->now();
            event.source = "screen";
            event.kind = "window";
            event.app = "App";
            event.title = text(random, 40);
            event.body = text(random, 2000);
            each.push_back(milliseconds([&] { store.insert(event, 90); }));
            total += each.back();
        }
    }
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder))
        bytes += entry.is_regular_file() ? entry.file_size() : 0;
    std::filesystem::remove_all(folder);
    std::ranges::sort(each);
    std::printf("insert %-22s median %6.2f ms  95%% %6.2f ms  %6.0f events/s  %5.2f KiB/event\n",
                label, each[each.size() / 2], each[each.size() * 95 / 100], 1000.0 * count / total,
                static_cast<double>(bytes) / 1024 / count);
}

} // namespace
} // namespace mnemora::bench

int main() {
    using namespace mnemora;
    using namespace mnemora::bench;
    installCoreServices(
        {.clock = std::make_shared<SystemClock>(),
         .sentenceModel = [](const std::string& language) { return makeSentenceModel(language); }});
    for (const int count : sizes) {
        setenv("XDG_DATA_HOME", memoryOf(count).c_str(), 1);
        measureScan(count);
        measureKeywords(count);
        measureBackfill(count);
    }
    std::mt19937 random(2);
    measureInsert("without embedding", std::make_unique<FixedEmbedder>(std::vector<float>()), 2000);
    measureInsert("with a free embedding", std::make_unique<FixedEmbedder>(unitVector(random)),
                  2000);
    measureInsert("with the model's", std::make_unique<NLSentenceEmbedder>("en"), 500);
    return 0;
}
