// Each call that the store makes of its file system fails once, and from then on, at every place
// of a whole life: opening, backfill, insertion, search, closing. The program goes on, says only
// what it says of a broken database, and what it reported as stored is there afterwards.

#include "Store/HookedFileSystem.h"
#include "Store/StoreFixture.h"
#include "fakes/CapturedStderr.h"

#include <cstring>
#include <filesystem>
#include <sstream>

namespace mnemora::test {
namespace {

using Kind = FileCall::Kind;
namespace files = std::filesystem;

/// How a call of one kind goes wrong.
struct Fault {
    Kind kind;
    int code;
    const char* name;
    /// What a call does before it fails.
    enum class Before { nothing, half } before = Before::nothing;
};

constexpr Fault faults[] = {
    {Kind::open, SQLITE_CANTOPEN, "open"},
    {Kind::remove, SQLITE_IOERR_DELETE, "remove"},
    {Kind::access, SQLITE_IOERR_ACCESS, "access"},
    {Kind::read, SQLITE_IOERR_READ, "read"},
    // Not SQLITE_IOERR_SHORT_READ: that means the end of the file, and is believed.
    {Kind::read, SQLITE_IOERR_READ, "short read", Fault::Before::half},
    {Kind::write, SQLITE_IOERR_WRITE, "write"},
    {Kind::write, SQLITE_FULL, "disk full"},
    {Kind::write, SQLITE_FULL, "short write", Fault::Before::half},
    {Kind::truncate, SQLITE_IOERR_TRUNCATE, "truncate"},
    {Kind::sync, SQLITE_IOERR_FSYNC, "sync"},
    {Kind::size, SQLITE_IOERR_FSTAT, "size"},
    {Kind::lock, SQLITE_BUSY, "locked"},
    {Kind::lock, SQLITE_IOERR_LOCK, "lock"},
    {Kind::sharedMap, SQLITE_IOERR_SHMMAP, "shared map"},
    {Kind::sharedLock, SQLITE_BUSY, "shared locked"},
    {Kind::sharedLock, SQLITE_IOERR_SHMLOCK, "shared lock"},
    {Kind::fetch, SQLITE_IOERR_MMAP, "fetch"},
};

/// Fails the nth call (from 1) of a fault's kind, or all from the nth on.
class Saboteur {
  public:
    Saboteur(const Fault& fault, int nth, bool isLasting)
        : fault_(fault), nth_(nth), isLasting_(isLasting) {}

    int operator()(const FileCall& call, const std::function<int()>& real) {
        const bool strikes =
            call.kind == fault_.kind && (++count_ == nth_ || (isLasting_ && count_ > nth_));
        hasStruck_ = hasStruck_ || strikes;
        if (strikes)
            return spoil(call, real);
        // That what was written survives a loss of power is another test's; here it costs time.
        return call.kind == Kind::sync ? SQLITE_OK : real();
    }
    [[nodiscard]] bool hasStruck() const { return hasStruck_; }

  private:
    [[nodiscard]] int spoil(const FileCall& call, const std::function<int()>& real) const {
        if (fault_.before == Fault::Before::half && call.kind == Kind::read && real() == SQLITE_OK)
            std::memset(static_cast<std::byte*>(call.bytes) + call.amount / 2, 0,
                        static_cast<std::size_t>(call.amount - call.amount / 2));
        if (fault_.before == Fault::Before::half && call.kind == Kind::write && real() == SQLITE_OK)
            truncateBehind(call);
        return fault_.code;
    }
    /// Leaves the first half of a write, where the other half was new.
    static void truncateBehind(const FileCall& call) {
        std::error_code ignored;
        const auto end = static_cast<std::uintmax_t>(call.offset + call.amount);
        if (!call.path.empty() && files::file_size(call.path, ignored) == end)
            files::resize_file(call.path, end - static_cast<std::uintmax_t>(call.amount / 2),
                               ignored);
    }

    const Fault& fault_;
    int nth_;
    bool isLasting_;
    int count_ = 0;
    bool hasStruck_ = false;
};

class FaultSweepTest : public StoreTest {
  protected:
    /// A database as a killed process leaves it: rows with and without vectors, a log that was not
    /// carried over. `bodySize` decides how long that log is.
    void makeTemplate(std::size_t bodySize) {
        auto& store = open();
        for (int i = 0; i < 8; ++i)
            store.insert(large("kept " + std::to_string(i), bodySize), 90);
        auto& without = open(std::make_unique<NoEmbedder>());
        for (int i = 0; i < 6; ++i)
            without.insert(large("bare " + std::to_string(i), bodySize), 90);
        files::create_directories(template_);
        for (const auto& file : files::directory_iterator(home.dataFolder()))
            if (file.path().extension() != ".sqlite-shm")
                files::copy_file(file, template_ / file.path().filename());
        close();
        kept_ = 14;
    }
    static MnemoraEvent large(const std::string& title, std::size_t bodySize) {
        MnemoraEvent made = event(title);
        made.body = "word of " + title + " " + std::string(bodySize, 'x');
        return made;
    }

    /// True while there are calls of that number to spoil.
    bool runOnce(const Fault& fault, int nth, bool isLasting) {
        SCOPED_TRACE(std::string(fault.name) + (isLasting ? " from " : " at ") +
                     std::to_string(nth));
        files::remove_all(home.dataFolder());
        if (files::exists(template_))
            files::copy(template_, home.dataFolder());
        reported_.clear();
        Saboteur saboteur(fault, nth, isLasting);
        const CapturedStderr output;
        {
            const HookedFileSystem system(std::ref(saboteur));
            live(saboteur, isLasting);
        }
        expectKnownLines(output.text());
        expectEverythingThere();
        return saboteur.hasStruck() && !HasFailure();
    }

    void sweep(int stride) {
        for (const Fault& fault : faults)
            for (const bool isLasting : {false, true})
                for (int nth = 1; runOnce(fault, nth, isLasting); nth += stride)
                    ++runs_;
        RecordProperty("runs", runs_);
        std::printf("%d faults\n", runs_);
    }

    files::path template_ = home.path() / "template";

  private:
    void live(const Saboteur& saboteur, bool isLasting) {
        auto& store = open();
        const bool wasOpened = !saboteur.hasStruck();
        store.backfillEmbeddings();
        for (int i = 0; i < 3; ++i)
            insert(store, "new " + std::to_string(i));
        const auto found =
            store.query("SELECT events_fts.rowid FROM events_fts\n"
                        "WHERE events_fts MATCH ? ORDER BY bm25(events_fts) LIMIT ?;",
                        {BindValue("word"), BindValue(std::int64_t{30})},
                        [](const RowReader& row) { return row.integer(0); });
        const auto similar = store.semanticTopK(std::vector<float>(8, 1), 30);
        EXPECT_LE(found.size(), kept_ + 3);
        EXPECT_LE(similar.size(), kept_ + 3);
        insert(store, "last");
        if (wasOpened && saboteur.hasStruck() && !isLasting) {
            EXPECT_TRUE(insert(store, "after the fault"));
            EXPECT_FALSE(store.semanticTopK(std::vector<float>(8, 1), 100).empty());
        }
        close();
    }
    bool insert(MnemoraStore& store, const std::string& title) {
        const bool stored = store.insert(large(title, 200), 90);
        if (stored)
            reported_.push_back(title);
        return stored;
    }
    static void expectKnownLines(const std::string& text) {
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);)
            EXPECT_TRUE(line.starts_with("[mnemora][error] prepare failed: ") ||
                        line.starts_with("[mnemora] backfilled "))
                << line;
    }
    void expectEverythingThere() {
        open().backfillEmbeddings(); // as the next start does
        close();
        EXPECT_GE(expectHolds(reported_), kept_ + reported_.size());
    }

    std::vector<std::string> reported_;
    std::size_t kept_ = 0;
    int runs_ = 0;
};

TEST_F(FaultSweepTest, ANewMemory) {
    sweep(23);
}

TEST_F(FaultSweepTest, AMemoryThatAKilledProcessLeft) {
    makeTemplate(200);
    sweep(31);
}

// The whole of it takes minutes.
class EveryFaultLongTest : public FaultSweepTest {};

TEST_F(EveryFaultLongTest, OfANewMemory) {
    sweep(1);
}

TEST_F(EveryFaultLongTest, OfAMemoryThatAKilledProcessLeft) {
    makeTemplate(200);
    sweep(1);
}

/// The log is so long that an insertion carries it over into the file.
TEST_F(EveryFaultLongTest, OfALogThatIsCarriedOverDuringAnInsertion) {
    makeTemplate(320'000);
    sweep(97);
}

} // namespace
} // namespace mnemora::test
