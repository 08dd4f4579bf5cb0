// Databases that can't be opened, read or written: a clear line, an empty answer, and nothing
// stored is lost.

#include "Store/StoreFixture.h"
#include "fakes/CapturedStderr.h"

#include <array>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace mnemora::test {
namespace {

constexpr auto countEvents = "SELECT count(*) FROM events;";

class DatabaseFaultsTest : public StoreTest {
  protected:
    /// Every operation of the store, which answers empty and writes one line a query.
    void expectEmptyMemory(const std::string& reason) {
        auto& store = open();
        const CapturedStderr output;
        store.backfillEmbeddings();
        EXPECT_FALSE(store.insert(event("lost"), 90));
        EXPECT_TRUE(store.semanticTopK(std::vector<float>(8, 1), 5).empty());
        EXPECT_EQ(output.text(), "");
        EXPECT_TRUE(count().empty());
        EXPECT_EQ(output.text(), "[mnemora][error] prepare failed: " + reason + "\n");
        close();
    }
    std::vector<std::int64_t> count() {
        return open().query(countEvents, {}, [](const RowReader& row) { return row.integer(0); });
    }
    [[nodiscard]] std::filesystem::path file() const {
        return home.dataFolder() / "mnemora.sqlite";
    }
};

TEST_F(DatabaseFaultsTest, AFileWhereTheFolderShouldBe) {
    std::filesystem::create_directories(home.path() / "data");
    std::ofstream(home.dataFolder()) << "in the way";
    expectEmptyMemory("unable to open database file");
}

TEST_F(DatabaseFaultsTest, AFolderWhereTheFileShouldBe) {
    std::filesystem::create_directories(file());
    expectEmptyMemory("unable to open database file");
}

TEST_F(DatabaseFaultsTest, APipeWhereTheFileShouldBe) {
    std::filesystem::create_directories(home.dataFolder());
    ASSERT_EQ(mkfifo(file().c_str(), 0600), 0);
    expectEmptyMemory("unable to open database file");
}

TEST_F(DatabaseFaultsTest, AFileThatIsNoDatabaseStaysAsItIs) {
    std::filesystem::create_directories(home.dataFolder());
    const std::string text(5000, 'x');
    std::ofstream(file()) << text;
    expectEmptyMemory("file is not a database");
    std::ifstream again(file());
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(again), {}), text);
}

TEST_F(DatabaseFaultsTest, AFolderOrFileOfSomebodyElse) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can give files away";
    open().insert(event("theirs"), 90);
    close();
    for (const auto& path : {home.dataFolder(), file()}) {
        ASSERT_EQ(chown(path.c_str(), 65534, 65534), 0);
        expectEmptyMemory("unable to open database file");
        ASSERT_EQ(chown(path.c_str(), 0, 0), 0);
    }
    EXPECT_EQ(count(), std::vector<std::int64_t>{1});
}

TEST_F(DatabaseFaultsTest, AReadOnlyFolderIsStillReadable) {
    for (int i = 0; i < 3; ++i)
        open().insert(event("row " + std::to_string(i)), 90);
    close();
    outside("PRAGMA journal_mode=DELETE;"); // as a backup on a read-only medium is
    for (const auto& path : {file(), home.dataFolder()})
        std::filesystem::permissions(path, std::filesystem::perms(path == file() ? 0400 : 0500));
    const auto asOwner = [this] {
        const bool refused = !open().insert(event("new"), 90);
        const auto rows = count();
        return refused && rows == std::vector<std::int64_t>{3} ? 0 : 1;
    };
    if (geteuid() != 0) {
        EXPECT_EQ(asOwner(), 0);
        return;
    }
    // Root may write everywhere, so another user has to try.
    const pid_t child = fork();
    if (child == 0) {
        const bool given = chown(home.path().c_str(), 65534, 65534) == 0 &&
                           chown((home.path() / "data").c_str(), 65534, 65534) == 0 &&
                           chown(home.dataFolder().c_str(), 65534, 65534) == 0 &&
                           chown(file().c_str(), 65534, 65534) == 0 && setuid(65534) == 0;
        _exit(given ? asOwner() : 2);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

/// A small file system of its own, gone with the scope.
class SmallDisk {
  public:
    explicit SmallDisk(std::filesystem::path folder) : folder_(std::move(folder)) {
        std::filesystem::create_directories(folder_);
        mounted_ = mount("tmpfs", folder_.c_str(), "tmpfs", 0, "size=2m,mode=0700") == 0;
    }
    ~SmallDisk() {
        if (mounted_)
            umount2(folder_.c_str(), MNT_DETACH);
    }
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;
    [[nodiscard]] bool mounted() const { return mounted_; }

  private:
    std::filesystem::path folder_;
    bool mounted_ = false;
};

TEST_F(DatabaseFaultsTest, ADiskThatFillsUp) {
    const SmallDisk disk(home.path() / "data");
    if (!disk.mounted())
        GTEST_SKIP() << "no file system may be mounted here";
    auto& store = open();
    int stored = 0;
    int refused = 0;
    for (int i = 0; i < 400 && refused < 5; ++i) {
        MnemoraEvent large = event("page " + std::to_string(i));
        large.body = std::string(20'000, static_cast<char>('a' + i % 26));
        (store.insert(large, 90) ? stored : refused) += 1;
    }
    EXPECT_GT(stored, 10);
    EXPECT_EQ(refused, 5);
    const auto rows = store.query(countEvents, {}, [](const RowReader& r) { return r.integer(0); });
    EXPECT_EQ(rows, std::vector<std::int64_t>{stored});
    close();
    expectSound();
}

/// Counts the texts that it embeds, and takes its time.
struct WatchedEmbedder : FakeEmbedder {
    std::atomic<int>& texts;
    useconds_t delay;
    explicit WatchedEmbedder(std::atomic<int>& count, useconds_t microseconds = 0)
        : texts(count), delay(microseconds) {}
    [[nodiscard]] std::optional<std::vector<float>> embed(std::string_view text) override {
        ++texts;
        usleep(delay);
        return FakeEmbedder::embed(text);
    }
};

TEST_F(DatabaseFaultsTest, ABackfillThatCantWriteGivesUp) {
    auto& without = open(std::make_unique<NoEmbedder>());
    for (int i = 0; i < 5; ++i)
        without.insert(event("row " + std::to_string(i)), 90);
    outside(
        "CREATE TRIGGER refuse BEFORE INSERT ON embeddings BEGIN SELECT RAISE(FAIL, 'x'); END;");
    std::atomic<int> texts = 0;
    auto& store = open(std::make_unique<WatchedEmbedder>(texts));
    const CapturedStderr output;
    store.backfillEmbeddings();
    EXPECT_EQ(texts, 1);
    EXPECT_EQ(output.text(), "[mnemora] backfilled 5 embeddings\n");
}

TEST_F(DatabaseFaultsTest, AStoreThatGoesWaitsForItsJobs) {
    std::atomic<int> texts = 0;
    auto& store = open(std::make_unique<WatchedEmbedder>(texts, 50'000));
    std::jthread writer([&] { EXPECT_TRUE(store.insert(event("last"), 90)); });
    while (texts == 0)
        std::this_thread::yield();
    close();
    writer.join();
    EXPECT_EQ(outside("SELECT count(*) FROM embeddings;"), std::vector<std::string>{"1"});
}

TEST_F(DatabaseFaultsTest, ALogOfAKilledProcessBecomesPrivateToo) {
    open().insert(event("row"), 90);
    for (const char* suffix : {"", "-wal", "-shm"})
        std::filesystem::permissions(file().string() + suffix, std::filesystem::perms(0644));
    const MnemoraStore another(std::make_unique<NoEmbedder>());
    for (const char* suffix : {"", "-wal", "-shm"})
        EXPECT_EQ(std::filesystem::status(file().string() + suffix).permissions(),
                  std::filesystem::perms(0600));
}

TEST_F(DatabaseFaultsTest, ALockOfAnotherProcessIsWaitedFor) {
    open();
    close(); // SQLite's connections must not be carried across a fork
    std::array<int, 2> ready{};
    ASSERT_EQ(pipe(ready.data()), 0);
    const pid_t holder = fork();
    if (holder == 0) {
        sqlite3* db = nullptr;
        sqlite3_open(MnemoraStore::dbPath().c_str(), &db);
        const bool locked = sqlite3_exec(db, "BEGIN IMMEDIATE;", nullptr, nullptr, nullptr) == 0;
        const bool told = write(ready[1], locked ? "1" : "0", 1) == 1;
        usleep(300'000); // a long write of somebody else
        sqlite3_exec(db, "COMMIT;", nullptr, nullptr, nullptr);
        _exit(locked && told ? 0 : 1);
    }
    char locked = 0;
    ASSERT_EQ(read(ready[0], &locked, 1), 1);
    EXPECT_EQ(locked, '1');
    EXPECT_TRUE(open().insert(event("patient"), 90));
    EXPECT_EQ(outside("SELECT count(*) FROM embeddings;"), std::vector<std::string>{"1"});
    int status = 0;
    ASSERT_EQ(waitpid(holder, &status, 0), holder);
    EXPECT_EQ(status, 0);
    ::close(ready[0]);
    ::close(ready[1]);
}

} // namespace
} // namespace mnemora::test
