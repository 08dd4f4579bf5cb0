// Several processes on one file, and processes that are killed while they write.

#include "Store/StoreFixture.h"
#include "Support/Installation.h"
#include "fakes/ChildProcess.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <memory>
#include <random>
#include <sys/wait.h>
#include <unistd.h>

namespace mnemora::test {
namespace {

/// The program that stores as fast as it can.
class Writer {
  public:
    Writer(const std::string& name, int count)
        : process_({(std::filesystem::read_symlink("/proc/self/exe").parent_path() / "store-writer")
                        .string(),
                    name, std::to_string(count)}) {}

    void kill() const { process_.kill(); }

    /// Waits until it has reported `count` events in all.
    void awaitEvents(long count) {
        for (; reported_ < count; ++reported_)
            ASSERT_FALSE(process_.readLine().empty());
    }
    /// How many events it reported as stored, and its wait status.
    std::pair<int, int> finish() {
        const std::string rest = process_.finish();
        reported_ += std::ranges::count(rest, '\n');
        return {static_cast<int>(reported_), process_.status()};
    }

  private:
    ChildProcess process_;
    long reported_ = 0;
};

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

/// Two writers and three tool servers on one file. Killed ones are started again, as sessions and
/// assistants do.
class CrowdTest : public StoreTest {
  protected:
    void killAtRandom(int times) {
        open(); // a writer may be killed before it has made the file
        close();
        for (auto& writer : writers_)
            start(writer);
        for (auto& server : servers_)
            server = startServer();
        for (int i = 0; i < times && !HasFailure(); ++i) {
            for (auto& server : servers_)
                ask(*server);
            usleep(static_cast<useconds_t>(random_() % 30'000)); // anywhere within their work
            if (const auto victim = random_() % 5; victim < writers_.size())
                replace(writers_[victim]);
            else
                servers_[victim - writers_.size()] = startServer(); // the former one is killed
            if (i % 25 == 24)
                expectSound(); // among the others' work
        }
        for (auto& writer : writers_)
            end(writer);
        for (const auto& server : servers_)
            ask(*server);
        servers_ = {};
        expectEverythingReported();
    }

  private:
    struct NamedWriter {
        std::string name;
        std::unique_ptr<Writer> process;
    };

    void start(NamedWriter& writer) {
        writer.name = "writer" + std::to_string(++started_);
        writer.process = std::make_unique<Writer>(writer.name, 100'000);
    }
    void end(NamedWriter& writer) {
        writer.process->kill();
        const auto [count, status] = writer.process->finish();
        EXPECT_TRUE(WIFSIGNALED(status)) << "a writer gave up with status " << status;
        for (int i = 0; i < count; ++i)
            reported_.push_back(writer.name + " " + std::to_string(i));
    }
    void replace(NamedWriter& writer) {
        end(writer);
        start(writer);
    }
    static std::unique_ptr<ChildProcess> startServer() {
        return std::make_unique<ChildProcess>(
            std::vector{(installation::prefix() / "bin/mnemora").string(), std::string("--mcp")},
            ChildProcess::Errors::dropped);
    }
    static void ask(ChildProcess& server) {
        const std::string request =
            R"({"id":1,"method":"tools/call","params":{"name":"search_memory",)"
            R"("arguments":{"query":"words of writer1"}}})";
        EXPECT_TRUE(server.send(request + "\n"));
        EXPECT_NE(server.readLine().find(R"("result")"), std::string::npos);
    }
    void expectEverythingReported() {
        open().backfillEmbeddings(); // recovers the log as the next start does
        close();
        const auto count = expectHolds(reported_);
        const auto distinct = outside("SELECT count(DISTINCT title) FROM events;").front();
        EXPECT_EQ(distinct, std::to_string(count));
        EXPECT_GT(reported_.size(), 20U);
        std::printf("%zu events reported\n", reported_.size());
    }

    std::mt19937 random_{11};
    int started_ = 0;
    std::array<NamedWriter, 2> writers_;
    std::array<std::unique_ptr<ChildProcess>, 3> servers_;
    std::vector<std::string> reported_;
};

TEST_F(CrowdTest, LosesNothingWhenAnyOfThemIsKilled) {
    killAtRandom(10);
}

class CrowdLongTest : public CrowdTest {};

TEST_F(CrowdLongTest, LosesNothingWhenAnyOfThemIsKilledAgainAndAgain) {
    killAtRandom(200);
}

} // namespace
} // namespace mnemora::test
