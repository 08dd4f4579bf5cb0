// Somebody cuts the files short under a running process, which has them mapped: it goes on, and
// once the file is fit for it, it stores again.

#include "Store/StoreFixture.h"
#include "Support/FileDescriptor.h"
#include "fakes/CapturedStderr.h"

#include <array>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace mnemora::test {
namespace {

namespace files = std::filesystem;

constexpr std::size_t rows = 60;

/// Runs the function in a process of its own; its wait status.
int inProcess(const std::function<int()>& run) {
    const pid_t child = fork();
    if (child == 0)
        _exit(run());
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return status;
}

class TruncationTest : public StoreTest {
  protected:
    void SetUp() override {
        auto& store = open();
        for (std::size_t i = 0; i < rows; ++i) {
            MnemoraEvent made = event("row " + std::to_string(i));
            made.body = std::string(3000, static_cast<char>('a' + i % 26));
            ASSERT_TRUE(store.insert(made, 90));
        }
        close(); // everything is in the file, and no connection is carried across a fork
    }

    /// What a process that has searched (and so mapped the file) does after `damage`: 0 when it
    /// answers everything, otherwise which step went wrong.
    int live(const std::function<void()>& damage, bool storesAgain) {
        MnemoraStore store(std::make_unique<FakeEmbedder>());
        const std::vector<float> query(8, 1);
        // With something in the log, it is the log and not the file that tells how many pages
        // there are.
        if (!store.insert(event("in the log"), 90) ||
            store.semanticTopK(query, 1000).size() != rows + 1)
            return 1;
        const CapturedStderr quiet; // a damaged file may say so, line by line
        bool isDone = false;
        (void)store.query("SELECT id, body FROM events ORDER BY id;", {},
                          [&](const RowReader& row) {
                              if (!std::exchange(isDone, true))
                                  damage();
                              return row.text(1);
                          });
        (void)store.semanticTopK(query, 1000);
        (void)store.insert(event("just after"), 90);
        store.backfillEmbeddings();
        if (!storesAgain)
            return 0;
        if (!store.insert(event("new life"), 90))
            return 2;
        const auto found = store.semanticTopK(query, 1000);
        return found.empty() ? 3 : 0;
    }

    files::path file = home.dataFolder() / "mnemora.sqlite";
};

TEST_F(TruncationTest, ADatabaseCutShortEndsNobody) {
    const auto whole = files::file_size(file);
    files::copy_file(file, home.path() / "whole");
    for (const auto left : {whole / 2 + 100, whole / 2 / 4096 * 4096, std::uintmax_t{4096}}) {
        for (const auto& old : files::directory_iterator(home.dataFolder()))
            files::remove(old);
        files::copy_file(home.path() / "whole", file);
        EXPECT_EQ(inProcess([&] { return live([&] { files::resize_file(file, left); }, false); }),
                  0)
            << left << " bytes left";
    }
}

TEST_F(TruncationTest, ALinkToTheFolderOrTheFileMakesNoDifference) {
    files::rename(home.dataFolder(), home.path() / "elsewhere");
    files::create_directory_symlink(home.path() / "elsewhere", home.dataFolder());
    files::rename(file, home.path() / "elsewhere/other name");
    files::create_symlink(home.path() / "elsewhere/other name", file);
    EXPECT_EQ(inProcess([&] { return live([&] { files::resize_file(file, 4096); }, false); }), 0);
}

TEST_F(TruncationTest, AnEmptiedDatabaseBecomesANewMemory) {
    EXPECT_EQ(inProcess([&] { return live([&] { files::resize_file(file, 0); }, true); }), 0);
    expectSound();
    EXPECT_EQ(outside("SELECT count(*) FROM events WHERE title = 'new life';").front(), "1");
}

TEST_F(TruncationTest, ACopyWrittenOverTheFileIsFound) {
    files::copy_file(file, home.path() / "whole");
    const auto restore = [&] { // as cp does it: emptied, then written
        files::resize_file(file, 0);
        files::copy_file(home.path() / "whole", file, files::copy_options::overwrite_existing);
    };
    EXPECT_EQ(inProcess([&] { return live(restore, true); }), 0);
    expectSound();
    EXPECT_EQ(outside("SELECT count(*) FROM events;").front(), std::to_string(rows + 3));
}

TEST_F(TruncationTest, AnEmptiedIndexOfTheLogLosesNothing) {
    const auto empty = [&] { files::resize_file(file.string() + "-shm", 0); };
    EXPECT_EQ(inProcess([&] { return live(empty, true); }), 0);
    expectSound();
    EXPECT_EQ(outside("SELECT count(*) FROM events;").front(), std::to_string(rows + 3));
}

/// Meets a page of the database that isn't there, as one that somebody cut off.
struct LosingEmbedder : FakeEmbedder {
    std::optional<std::vector<float>> embed(std::string_view text) override {
        const FileDescriptor file(open(MnemoraStore::dbPath().c_str(), O_RDONLY | O_CLOEXEC));
        const std::size_t end = files::file_size(MnemoraStore::dbPath());
        const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        const std::size_t length = (end / page + 2) * page;
        void* mapped = mmap(nullptr, length, PROT_READ, MAP_SHARED, file.get(), 0);
        const auto* behind = static_cast<const volatile char*>(mapped) + length - page;
        EXPECT_EQ(*behind, 0);
        munmap(mapped, length);
        return FakeEmbedder::embed(text);
    }
};

TEST_F(TruncationTest, NothingIsCommittedUponLostPages) {
    MnemoraStore store(std::make_unique<LosingEmbedder>());
    EXPECT_TRUE(store.insert(event("before the loss"), 90));
    EXPECT_EQ(outside("SELECT count(*) FROM events;").front(), std::to_string(rows + 1));
    EXPECT_EQ(outside("SELECT count(*) FROM embeddings;").front(), std::to_string(rows));
}

TEST_F(TruncationTest, OtherBusErrorsStillEndAProcess) {
    const int status = inProcess([&] {
        const rlimit none{.rlim_cur = 0, .rlim_max = 0};
        setrlimit(RLIMIT_CORE, &none);
        const MnemoraStore store(std::make_unique<FakeEmbedder>());
        const FileDescriptor other(
            ::open((home.path() / "other").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
        const auto* page = static_cast<const volatile char*>(
            mmap(nullptr, 4096, PROT_READ, MAP_SHARED, other.get(), 0));
        return page[0] * 0;
    });
    const int sent = inProcess([&] {
        const rlimit none{.rlim_cur = 0, .rlim_max = 0};
        setrlimit(RLIMIT_CORE, &none);
        const MnemoraStore store(std::make_unique<FakeEmbedder>());
        kill(getpid(), SIGBUS);
        return 0;
    });
    EXPECT_TRUE(WIFSIGNALED(sent) ? WTERMSIG(sent) == SIGBUS : WEXITSTATUS(sent) != 0);
    // A sanitizer's own handler, to which ours gives such a one, reports and exits.
    EXPECT_TRUE(WIFSIGNALED(status) ? WTERMSIG(status) == SIGBUS : WEXITSTATUS(status) != 0);
}

} // namespace
} // namespace mnemora::test
