// The whole tool, on a memory that others use meanwhile; what it erased is looked for byte by byte.

#include "Store/StoreFixture.h"
#include "Support/Installation.h"
#include "fakes/ChildProcess.h"
#include "fakes/ScopedVariable.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sys/wait.h>
#include <unistd.h>

namespace mnemora::test {
namespace {

namespace files = std::filesystem;

constexpr double day = 86'400;
constexpr double firstDay = 1'700'006'400; // 2023-11-15T00:00Z
// Unlike anything else, so that the index doesn't store them as another word's continuation.
constexpr auto secret = "quarzfelsenmond";
constexpr auto kept = "walnussregal";

class EraseTest : public StoreTest {
  protected:
    const ScopedVariable zone{"TZ", "UTC"};

    /// Three days of 40 observations each; those of the second hold the secret.
    void fill() {
        auto& store = open();
        for (int i = 0; i < 120; ++i)
            store.insert(made(i), 90);
    }
    static MnemoraEvent made(int i) {
        const bool isSecret = i / 40 == 1;
        const std::string word = isSecret ? secret : kept;
        auto observation =
            event(word + " title " + std::to_string(i), firstDay + i / 40 * day + i % 40 * 600.0);
        observation.body = word + " body " + std::string(isSecret ? 3000 : 700, 'z');
        observation.kind = i % 10 == 0 ? "meeting" : "window";
        return observation;
    }
    /// Of a secret observation, as it is stored.
    static std::string vectorBytes() {
        const auto secretOne = made(45);
        const auto vector = FakeEmbedder().embed(*secretOne.title + ". " + *secretOne.body);
        std::string bytes(vector->size() * sizeof(float), '\0');
        std::memcpy(bytes.data(), vector->data(), bytes.size());
        return bytes;
    }

    /// How often the bytes stand in any file of the home folder.
    [[nodiscard]] int occurrences(const std::string& bytes) const {
        int count = 0;
        for (const auto& entry : files::recursive_directory_iterator(home.path())) {
            if (!entry.is_regular_file())
                continue;
            std::ifstream stream(entry.path(), std::ios::binary);
            const std::string content(std::istreambuf_iterator<char>(stream), {});
            for (auto at = content.find(bytes); at != std::string::npos;
                 at = content.find(bytes, at + 1))
                ++count;
        }
        return count;
    }
    void expectNoTrace() const {
        EXPECT_EQ(occurrences(secret), 0);
        EXPECT_EQ(occurrences(vectorBytes()), 0);
        EXPECT_GT(occurrences(kept), 80);
        EXPECT_EQ(outside("SELECT count(*), min(id), max(id) FROM events;").front(), "80|1|120");
        EXPECT_EQ(outside("SELECT count(*) FROM embeddings;").front(), "80");
        EXPECT_EQ(outside("SELECT count(*) FROM events_fts WHERE events_fts MATCH 'walnussregal';")
                      .front(),
                  "80");
        expectSound();
    }

    struct Run {
        int status = 0;
        std::string output;
    };
    static Run erase(std::vector<std::string> arguments, const char* patience = "60") {
        arguments.insert(arguments.begin(),
                         (installation::prefix() / "bin/mnemora-erase").string());
        arguments.insert(arguments.end(), {"--wait", patience});
        ChildProcess tool(arguments, ChildProcess::Errors::dropped);
        tool.endInput();
        Run run;
        run.output = tool.finish();
        run.status = WIFEXITED(tool.status()) ? WEXITSTATUS(tool.status()) : -1;
        return run;
    }
    static std::unique_ptr<ChildProcess> server() {
        return std::make_unique<ChildProcess>(
            std::vector{(installation::prefix() / "bin/mnemora").string(), std::string("--mcp")},
            ChildProcess::Errors::dropped);
    }
    static std::string ask(ChildProcess& server, const std::string& words) {
        server.send(R"({"id":1,"method":"tools/call","params":{"name":"search_memory",)"
                    R"("arguments":{"query":")" +
                    words + "\"}}}\n");
        return server.readLine();
    }
};

TEST_F(EraseTest, TakesADayOutOfEveryFileWhileOthersReadAndWrite) {
    fill();
    const auto assistant = server();
    EXPECT_NE(ask(*assistant, secret).find(secret), std::string::npos);
    ASSERT_FALSE(open().semanticTopK(std::vector<float>(8, 1), 5).empty()); // maps the file
    EXPECT_GT(occurrences(secret), 80); // else the search below would prove nothing
    EXPECT_GT(occurrences(vectorBytes()), 0);

    const auto dry = erase({"--day", "2023-11-16", "--dry-run"});
    EXPECT_EQ(dry.status, 0);
    EXPECT_EQ(dry.output, "40 observations from 2023-11-16 00:00 to 2023-11-16 06:30, 4 of them "
                          "parts of meetings.\n");
    EXPECT_EQ(erase({"--day", "2023-11-16"}).status, 2) << "with nobody to ask";
    EXPECT_GT(occurrences(secret), 80);

    EXPECT_EQ(erase({"--day", "2023-11-16", "--yes"}).status, 0);
    expectNoTrace();
    EXPECT_EQ(ask(*assistant, secret).find(secret), std::string::npos);
    EXPECT_NE(ask(*assistant, kept).find(kept), std::string::npos);
    EXPECT_EQ(open().semanticTopK(std::vector<float>(8, 1), 1000).size(), 80U);
    EXPECT_TRUE(open().insert(event("the program goes on"), 90));
    EXPECT_EQ(outside("SELECT max(id) FROM events;").front(), "121") << "ids are never reused";
}

TEST_F(EraseTest, TakesEverythingWhileAWriterGoesOn) {
    fill();
    close();
    ChildProcess writer(
        {(files::read_symlink("/proc/self/exe").parent_path() / "store-writer").string(), "w",
         "100000"});
    const auto assistant = server();
    for (int i = 0; i < 50; ++i)
        ASSERT_FALSE(writer.readLine().empty());
    EXPECT_EQ(erase({"--to", "2024-01-01", "--yes"}).status, 0);
    EXPECT_EQ(occurrences(secret), 0);
    EXPECT_EQ(occurrences(kept), 0);
    EXPECT_EQ(outside("SELECT count(*) FROM events WHERE title = 'w 0';").front(), "1");

    EXPECT_EQ(erase({"--all", "--yes"}).status, 0);
    EXPECT_EQ(outside("SELECT count(*) FROM events WHERE title = 'w 0';").front(), "0");
    int reported = 0;
    for (; reported < 200; ++reported)
        ASSERT_FALSE(writer.readLine().empty());
    EXPECT_NE(ask(*assistant, "words of w").find("words of w"), std::string::npos);
    writer.kill();
    (void)writer.finish();
    EXPECT_GT(std::stoi(outside("SELECT count(*) FROM events;").front()), 0);
    expectSound();
}

/// Has everything erased while it makes the vector of what was just stored.
struct ErasingEmbedder : FakeEmbedder {
    std::function<void()> erase;
    std::optional<std::vector<float>> embed(std::string_view text) override {
        if (erase)
            erase();
        return FakeEmbedder::embed(text);
    }
};

TEST_F(EraseTest, NothingComesBackOfWhatIsErasedWhileItIsStored) {
    auto embedder = std::make_unique<ErasingEmbedder>();
    embedder->erase = [] { EXPECT_EQ(erase({"--all", "--yes"}).status, 0); };
    auto& store = open(std::move(embedder));
    EXPECT_TRUE(store.insert(made(45), 90));
    EXPECT_EQ(outside("SELECT (SELECT count(*) FROM events), (SELECT count(*) FROM embeddings);"),
              std::vector<std::string>{"0|0"});
    // As an older version left it.
    outside("INSERT INTO embeddings VALUES (7, 8, zeroblob(20) || '" + std::string(secret) + "');");
    EXPECT_GT(occurrences(secret), 0);
    EXPECT_EQ(erase({"--day", "2023-11-15"}).status, 0);
    EXPECT_EQ(occurrences(secret), 0);
    EXPECT_EQ(occurrences(vectorBytes()), 0);
}

TEST_F(EraseTest, WaitsForOthersOnlySoLongAndSaysWhatIsLeft) {
    fill();
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open(MnemoraStore::dbPath().c_str(), &other), SQLITE_OK);
    const auto hold = [&](const char* sql) {
        ASSERT_EQ(sqlite3_exec(other, sql, nullptr, nullptr, nullptr), SQLITE_OK);
    };
    hold("BEGIN IMMEDIATE;");
    EXPECT_EQ(erase({"--day", "2023-11-16", "--yes"}, "1").status, 1);
    EXPECT_EQ(outside("SELECT count(*) FROM events;").front(), "120");
    hold("COMMIT; BEGIN; SELECT count(*) FROM events;"); // a reader that stays
    EXPECT_EQ(erase({"--day", "2023-11-16", "--yes"}, "1").status, 3);
    EXPECT_EQ(outside("SELECT count(*) FROM events;").front(), "80");
    EXPECT_GT(occurrences(secret), 0);
    hold("COMMIT;");
    sqlite3_close(other);
    EXPECT_EQ(erase({"--day", "2023-11-16"}).status, 0); // nothing to ask about
    expectNoTrace();
}

TEST_F(EraseTest, TouchesNothingOfSomebodyElse) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can give files away";
    fill();
    for (const auto& path : {home.dataFolder(), home.dataFolder() / "mnemora.sqlite"}) {
        ASSERT_EQ(chown(path.c_str(), 65534, 65534), 0);
        EXPECT_EQ(erase({"--all", "--yes"}).status, 1);
        ASSERT_EQ(chown(path.c_str(), 0, 0), 0);
    }
    EXPECT_EQ(outside("SELECT count(*) FROM events;").front(), "120");
}

TEST_F(EraseTest, MakesNothingWhereNothingIs) {
    EXPECT_EQ(erase({"--all"}).output, "Nothing is stored.\n");
    EXPECT_FALSE(files::exists(home.dataFolder()));
    files::create_directories(home.dataFolder());
    std::ofstream(home.dataFolder() / "mnemora.sqlite") << std::string(5000, 'x');
    EXPECT_EQ(erase({"--all", "--yes"}).status, 1);
    // What can't be looked at may well be there.
    files::remove_all(home.dataFolder());
    files::create_directory_symlink(home.dataFolder(), home.dataFolder());
    const auto run = erase({"--all", "--yes"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.output, "");
}

} // namespace
} // namespace mnemora::test
