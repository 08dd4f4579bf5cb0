// The power goes at every moment of a life: what was written but not synchronised may be on the
// disk, or a part of it, or torn in the middle of a write. What was reported as stored is there.

#include "Store/HookedFileSystem.h"
#include "Store/StoreFixture.h"
#include "fakes/CapturedStderr.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>

namespace mnemora::test {
namespace {

using Kind = FileCall::Kind;
namespace files = std::filesystem;

/// A disk with a volatile cache: knows of each file what is safe and what still is on its way.
class VolatileDisk {
  public:
    int operator()(const FileCall& call, const std::function<int()>& real) {
        // What is safe is decided here; a real synchronisation would only cost time.
        const int result = call.kind == Kind::sync ? SQLITE_OK : real();
        // The log's index is memory of the running processes; no disk keeps it.
        if (result != SQLITE_OK || call.path.empty() || call.path.ends_with("-shm"))
            return result;
        File& file = disk_[call.path];
        if (call.kind == Kind::write)
            file.pending.push_back({Change::Kind::write, call.offset,
                                    std::string(static_cast<const char*>(call.bytes),
                                                static_cast<std::size_t>(call.amount))});
        else if (call.kind == Kind::truncate)
            file.pending.push_back({Change::Kind::truncate, call.amount, {}});
        else if (call.kind == Kind::remove)
            file.pending.push_back({Change::Kind::remove, 0, {}});
        if (call.kind == Kind::sync || call.isDurable)
            synchronise(call.path);
        if (call.kind == Kind::write || call.kind == Kind::sync || call.kind == Kind::truncate ||
            call.kind == Kind::remove)
            onChange();
        return result;
    }

    /// Called after each change of the disk.
    std::function<void()> onChange = [] {};

    /// What of the changes under way the loss of power lets through.
    enum class Survivors { none, all, some, torn };

    /// The files as they are found afterwards; a file that was never synchronised may be missing.
    [[nodiscard]] std::map<std::string, std::string> after(Survivors survivors,
                                                           std::mt19937& random) const {
        std::map<std::string, std::string> found;
        for (const auto& [path, file] : disk_) {
            auto content = file.durable;
            for (std::size_t i = 0; i < file.pending.size(); ++i) {
                Change change = file.pending[i];
                const bool isLast = i + 1 == file.pending.size();
                if (survivors == Survivors::none ||
                    (survivors == Survivors::some && random() % 2 == 0))
                    continue;
                if (survivors == Survivors::torn && isLast)
                    change.bytes.resize(random() % (change.bytes.size() / sector + 1) * sector);
                apply(change, content);
            }
            if (content)
                found[path] = *content;
        }
        return found;
    }

  private:
    static constexpr std::size_t sector = 512;

    struct Change {
        enum class Kind { write, truncate, remove } kind;
        std::int64_t at; // a write's offset, or the length that is left
        std::string bytes;
    };
    struct File {
        std::optional<std::string> durable;
        std::vector<Change> pending;
    };

    static void apply(const Change& change, std::optional<std::string>& content) {
        if (change.kind == Change::Kind::remove) {
            content.reset();
            return;
        }
        if (!content)
            content.emplace();
        const auto at = static_cast<std::size_t>(change.at);
        if (change.kind == Change::Kind::truncate) {
            content->resize(std::min(at, content->size()));
            return;
        }
        content->resize(std::max(content->size(), at + change.bytes.size()));
        content->replace(at, change.bytes.size(), change.bytes);
    }
    /// The first time that a new journal or log is synchronised its folder is as well (unixSync of
    /// SQLite's os_unix.c), and with it what was removed from there.
    void synchronise(const std::string& path) {
        File& file = disk_[path];
        const bool isNew = !file.durable && !path.ends_with(".sqlite");
        settle(file, file.pending.size());
        if (!isNew)
            return;
        for (auto& [name, its] : disk_) {
            const auto removal =
                std::find_if(its.pending.rbegin(), its.pending.rend(), [](const Change& change) {
                    return change.kind == Change::Kind::remove;
                });
            settle(its, static_cast<std::size_t>(its.pending.rend() - removal));
        }
    }
    /// The first `count` of the changes under way.
    static void settle(File& file, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i)
            apply(file.pending[i], file.durable);
        file.pending.erase(file.pending.begin(),
                           file.pending.begin() + static_cast<std::ptrdiff_t>(count));
    }

    std::map<std::string, File> disk_;
};

class PowerLossTest : public StoreTest {
  protected:
    /// A disk at the moment of the loss, and what had been reported by then.
    struct Moment {
        std::map<std::string, std::string> disk;
        std::size_t reported;
    };

    void loseAtEvery(std::size_t stride, VolatileDisk::Survivors survivors) {
        std::mt19937 random(7);
        std::vector<Moment> moments;
        std::vector<std::string> reported;
        std::size_t changes = 0;
        VolatileDisk disk;
        disk.onChange = [&] {
            if (changes++ % stride == 0)
                moments.push_back({disk.after(survivors, random), reported.size()});
        };
        live(disk, reported);
        for (const Moment& moment : moments)
            look(moment, reported);
        EXPECT_GT(moments.size(), 20U);
        std::printf("%zu moments\n", moments.size());
    }

  private:
    /// Two runs of the program; the second finds the first one's file and its closing truncates
    /// the log. With a search between, and rows whose vectors come by the backfill.
    void live(VolatileDisk& disk, std::vector<std::string>& reported) {
        files::remove_all(home.dataFolder());
        const HookedFileSystem system(std::ref(disk));
        for (const char* run : {"first ", "second "}) {
            auto& store = run[0] == 'f' ? open(std::make_unique<NoEmbedder>()) : open();
            store.backfillEmbeddings();
            for (int i = 0; i < 12; ++i) {
                MnemoraEvent made = event(run + std::to_string(i));
                made.body = std::string(3000, static_cast<char>('a' + i));
                ASSERT_TRUE(store.insert(made, 90));
                reported.push_back(*made.title);
            }
            close();
        }
    }
    void look(const Moment& moment, const std::vector<std::string>& reported) {
        if (HasFailure())
            return;
        files::remove_all(home.dataFolder());
        files::create_directories(home.dataFolder());
        for (const auto& [path, content] : moment.disk)
            std::ofstream(path, std::ios::binary) << content;
        const CapturedStderr quiet;
        const HookedFileSystem fast([](const FileCall& call, const std::function<int()>& real) {
            return call.kind == Kind::sync ? SQLITE_OK : real();
        });
        SCOPED_TRACE("after " + std::to_string(moment.reported) + " reports");
        open().backfillEmbeddings();
        EXPECT_TRUE(open().insert(event("the next day"), 90));
        close();
        expectHolds(
            {reported.begin(), reported.begin() + static_cast<std::ptrdiff_t>(moment.reported)});
    }
};

using Survivors = VolatileDisk::Survivors;

TEST_F(PowerLossTest, NothingThatWasUnderWayArrives) {
    loseAtEvery(9, Survivors::none);
}

TEST_F(PowerLossTest, TheLastWriteIsTorn) {
    loseAtEvery(9, Survivors::torn);
}

TEST_F(PowerLossTest, WritesArriveOutOfOrder) {
    loseAtEvery(9, Survivors::some);
}

class EveryPowerLossLongTest : public PowerLossTest,
                               public testing::WithParamInterface<Survivors> {};

TEST_P(EveryPowerLossLongTest, LeavesWhatWasReported) {
    loseAtEvery(1, GetParam());
}

INSTANTIATE_TEST_SUITE_P(Survivors, EveryPowerLossLongTest,
                         testing::Values(Survivors::none, Survivors::all, Survivors::some,
                                         Survivors::torn));

} // namespace
} // namespace mnemora::test
