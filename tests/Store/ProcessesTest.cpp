// Several processes on one file, and processes that are killed while they write.

#include "Store/StoreFixture.h"
#include "Support/FileDescriptor.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <random>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace mnemora::test {
namespace {

/// The writer program beside this one, with a pipe from its standard output.
class Writer {
  public:
    Writer(const std::string& name, int count) {
        std::array<int, 2> ends{};
        EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
        output_.reset(ends[0]);
        const FileDescriptor theirs(ends[1]);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, theirs.get(), STDOUT_FILENO);
        std::string program =
            (std::filesystem::read_symlink("/proc/self/exe").parent_path() / "store-writer")
                .string();
        std::string label = name;
        std::string number = std::to_string(count);
        std::array<char*, 4> arguments = {program.data(), label.data(), number.data(), nullptr};
        EXPECT_EQ(posix_spawn(&pid_, program.c_str(), &actions, nullptr, arguments.data(), environ),
                  0);
        posix_spawn_file_actions_destroy(&actions);
    }

    void kill() const { ::kill(pid_, SIGKILL); }

    /// Waits until it has reported `count` events in all.
    void awaitEvents(long count) {
        std::array<char, 64> chunk{};
        while (std::ranges::count(reported_, '\n') < count) {
            const ssize_t size = read(output_.get(), chunk.data(), chunk.size());
            ASSERT_GT(size, 0);
            reported_.append(chunk.data(), static_cast<size_t>(size));
        }
    }

    /// How many events it reported as stored, and its wait status.
    std::pair<int, int> finish() {
        std::array<char, 4096> chunk{};
        for (ssize_t size = 0; (size = read(output_.get(), chunk.data(), chunk.size())) > 0;)
            reported_.append(chunk.data(), static_cast<size_t>(size));
        int status = 0;
        EXPECT_EQ(waitpid(pid_, &status, 0), pid_);
        return {static_cast<int>(std::ranges::count(reported_, '\n')), status};
    }

  private:
    pid_t pid_ = 0;
    FileDescriptor output_;
    std::string reported_;
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

} // namespace
} // namespace mnemora::test
