#include "Store/Memories.h"

#include "Store/MnemoraStore.h"
#include "Store/Statement.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace mnemora::bench {
namespace {

constexpr int vocabulary = 20'000;
constexpr std::size_t bodyLength = 2000;

/// No model: the vectors are written here.
struct NoEmbedder : Embedder {
    [[nodiscard]] int dimension() const override { return 0; }
    [[nodiscard]] bool isAvailable() const override { return false; }
    [[nodiscard]] std::optional<std::vector<float>> embed(std::string_view /*text*/) override {
        return std::nullopt;
    }
};

std::string word(int number) {
    std::string letters;
    for (int rest = number + 26; rest > 0; rest /= 26)
        letters += static_cast<char>('a' + rest % 26);
    return letters;
}

void fill(sqlite3* db, int count) {
    std::mt19937 random(1);
    sqlite3_exec(db, "BEGIN;", nullptr, nullptr, nullptr);
    const Statement events(db,
                           "INSERT INTO events (ts, source, app, bundle, kind, title, body, "
                           "hash) VALUES (?, 'screen', ?, 'org.example.app', 'window', ?, ?, ?);");
    const Statement vectors(db, "INSERT INTO embeddings VALUES (?, 384, ?);");
    for (int i = 0; i < count; ++i) {
        events.bind(1, 1.7e9 + 6.0 * i);
        events.bind(2, "App " + std::to_string(random() % 40));
        events.bind(3, text(random, 40));
        events.bind(4, text(random, bodyLength));
        events.bind(5, std::to_string(static_cast<std::int64_t>(random()) << 31));
        (void)events.stepToDone();
        sqlite3_reset(events.get());
        vectors.bind(1, std::int64_t{i} + 1);
        vectors.bind(2, std::as_bytes(std::span<const float>(unitVector(random))));
        (void)vectors.stepToDone();
        sqlite3_reset(vectors.get());
    }
    sqlite3_exec(db, "COMMIT; PRAGMA wal_checkpoint(TRUNCATE);", nullptr, nullptr, nullptr);
}

} // namespace

std::string text(std::mt19937& random, std::size_t length) {
    std::uniform_real_distribution<double> uniform(0, 1);
    std::string words;
    while (words.size() < length) {
        // Inverse of the distribution function of a density that falls as 1/rank.
        const double rank = std::pow(double{vocabulary}, uniform(random)) - 1;
        words += word(static_cast<int>(rank)) + " ";
    }
    words.resize(length);
    return words;
}

std::vector<float> unitVector(std::mt19937& random) {
    std::normal_distribution<float> normal;
    std::vector<float> vector(dimension);
    float squares = 0;
    for (float& element : vector) {
        element = normal(random);
        squares += element * element;
    }
    for (float& element : vector)
        element /= std::sqrt(squares);
    return vector;
}

std::filesystem::path memoryOf(int count) {
    const auto programs = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    const auto folder = programs / "memories" / std::to_string(count);
    if (std::filesystem::exists(folder / "complete"))
        return folder;
    std::fprintf(stderr, "making a memory of %d events ...\n", count);
    std::filesystem::remove_all(folder);
    setenv("XDG_DATA_HOME", folder.c_str(), 1);
    {
        const MnemoraStore schema(std::make_unique<NoEmbedder>());
        sqlite3* db = nullptr;
        sqlite3_open(MnemoraStore::dbPath().c_str(), &db);
        fill(db, count);
        sqlite3_close(db);
    }
    std::filesystem::create_directory(folder / "complete");
    return folder;
}

} // namespace mnemora::bench
