// Several processes on one file, and processes that are killed while they write.

#include "Store/Crowd.h"

#include <random>
#include <sys/wait.h>
#include <unistd.h>

namespace mnemora::test {
namespace {

TEST_F(StoreTest, ProcessesHashTheSameContentDifferently) {
    EXPECT_EQ(Writer("same", 1).finish(), std::pair(1, 0));
    EXPECT_EQ(Writer("same", 1).finish(), std::pair(1, 0));
    EXPECT_EQ(outside("SELECT count(*), count(DISTINCT body), count(DISTINCT hash) FROM events;"),
              std::vector<std::string>{"2|1|2"});
}

TEST_F(StoreTest, TwoProcessesLoseNeitherEventsNorVectors) {
    Writer first("first", 150);
    Writer second("second", 150);
    EXPECT_EQ(first.finish(), std::pair(150, 0));
    EXPECT_EQ(second.finish(), std::pair(150, 0));
    EXPECT_EQ(outside("SELECT count(*), count(DISTINCT title) FROM events;"),
              std::vector<std::string>{"300|300"});
    EXPECT_EQ(outside("SELECT count(*) FROM embeddings;"), std::vector<std::string>{"300"});
    expectSound();
}

TEST_F(StoreTest, AKilledWriterLosesAtMostTheEventBeingWritten) {
    open(); // the first writer may be killed before it has made the file
    close();
    std::mt19937 random(5);
    int before = 0;
    for (int round = 0; round < 50; ++round) {
        Writer writer("round" + std::to_string(round), 100'000);
        writer.awaitEvents(static_cast<long>(random() % 4));
        usleep(static_cast<useconds_t>(random() % 8000)); // anywhere within a few writes
        writer.kill();
        const auto [reported, status] = writer.finish();
        EXPECT_TRUE(WIFSIGNALED(status));
        const auto rows = outside("SELECT count(*) FROM events;");
        const int stored = rows.empty() ? 0 : std::stoi(rows.front());
        EXPECT_GE(stored, before + reported);
        EXPECT_LE(stored, before + reported + 1);
        before = stored;
        open(); // recovers the log as the next start does
        close();
        expectSound();
    }
    EXPECT_GT(before, 50);
}

TEST_F(CrowdTest, LosesNothingWhenAnyOfThemIsKilled) {
    killAtRandom(10);
}

class CrowdLongTest : public CrowdTest {};

TEST_F(CrowdLongTest, LosesNothingWhenAnyOfThemIsKilledAgainAndAgain) {
    killAtRandom(200);
}

} // namespace
} // namespace mnemora::test
