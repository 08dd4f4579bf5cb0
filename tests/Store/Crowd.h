#pragma once
// Several processes on one file, killed at random while they write and read.

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

/// The program that stores as fast as it can.
class Writer {
  public:
    Writer(const std::string& name, int count, int pauseUs = 0)
        : process_({(std::filesystem::read_symlink("/proc/self/exe").parent_path() / "store-writer")
                        .string(),
                    name, std::to_string(count), std::to_string(pauseUs)}) {}

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

/// Two writers and three tool servers on one file. Killed ones are started again, as sessions and
/// assistants do. Another process may take the second writer's place.
class CrowdTest : public StoreTest {
  protected:
    explicit CrowdTest(std::size_t writers = 2, int pauseUs = 0)
        : writers_(writers), pauseUs_(pauseUs) {}

    virtual void startOther() {}
    /// Kills it; the titles of the events that it is known to have stored are added to `reported`.
    virtual void endOther(std::vector<std::string>& /*reported*/) {}

    void killAtRandom(int times) {
        open(); // a writer may be killed before it has made the file
        close();
        for (auto& writer : writers_)
            start(writer);
        for (auto& server : servers_)
            server = startServer();
        startOther();
        for (int i = 0; i < times && !HasFailure(); ++i) {
            for (auto& server : servers_)
                ask(*server);
            usleep(static_cast<useconds_t>(random_() % 30'000)); // anywhere within their work
            replace(random_() % 5);
            if (i % 25 == 24)
                expectSound(); // among the others' work
        }
        for (auto& writer : writers_)
            end(writer);
        endOther(reported_);
        for (const auto& server : servers_)
            ask(*server);
        servers_ = {};
        expectEverythingReported();
    }

    std::mt19937 random_{11};

  private:
    struct NamedWriter {
        std::string name;
        std::unique_ptr<Writer> process;
    };

    void start(NamedWriter& writer) {
        writer.name = "writer" + std::to_string(++started_);
        writer.process = std::make_unique<Writer>(writer.name, 100'000, pauseUs_);
    }
    void end(NamedWriter& writer) {
        writer.process->kill();
        const auto [count, status] = writer.process->finish();
        EXPECT_TRUE(WIFSIGNALED(status)) << "a writer gave up with status " << status;
        for (int i = 0; i < count; ++i)
            reported_.push_back(writer.name + " " + std::to_string(i));
    }
    void replace(std::size_t victim) {
        if (victim < servers_.size()) {
            servers_[victim] = startServer(); // the former one is killed
        } else if (victim -= servers_.size(); victim < writers_.size()) {
            end(writers_[victim]);
            start(writers_[victim]);
        } else {
            endOther(reported_);
            startOther();
        }
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

    int started_ = 0;
    std::vector<NamedWriter> writers_;
    int pauseUs_; // of a writer after each event
    std::array<std::unique_ptr<ChildProcess>, 3> servers_;
    std::vector<std::string> reported_;
};

} // namespace mnemora::test
