// mnemora-erase: how a user takes observations out of the memory, which the program itself never
// does.

#include "Erase/EraseOptions.h"
#include "Platform/SystemClock.h"
#include "Store/DatabaseFile.h"
#include "Support/CoreFiles.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace mnemora;

constexpr int failed = 1;
constexpr int wrongUsage = 2;
constexpr int remainsLeft = 3;

constexpr auto usage =
    R"(Usage: mnemora-erase --all | --day DAY | --from TIME [--to TIME] | --to TIME
                     [--dry-run] [--yes] [--wait SECONDS]

Erases observations, parts of meetings included, for good: from the memory's rows, its full-text
index, its vectors, its log and the unused parts of its files. The program may run meanwhile.

  --all            everything
  --day DAY        a day, as 2026-11-20
  --from, --to     from and up to a TIME, as "2026-11-20 09:30"; a day alone is meant whole
  --dry-run        only say how much that is
  --yes            don't ask
  --wait SECONDS   how long to wait for other programs that use the memory (30)
)";

int fail(int status, const std::string& line) {
    std::fprintf(stderr, "mnemora-erase: %s\n", line.c_str());
    return status;
}

std::string described(const RangeContents& contents, const Clock& clock) {
    if (contents.events == 0)
        return "Nothing is stored of that time.";
    constexpr auto pattern = "yyyy-MM-dd HH:mm";
    return std::to_string(contents.events) +
           (contents.events == 1 ? " observation" : " observations") + " from " +
           clock.format(contents.first, pattern) + " to " + clock.format(contents.last, pattern) +
           ", " + std::to_string(contents.ofMeetings) + " of them parts of meetings.";
}

bool isConfirmed() {
    std::printf("Erase them? This can't be undone. [y/N] ");
    std::fflush(stdout);
    std::string answer;
    std::getline(std::cin, answer);
    return answer == "y" || answer == "Y" || answer == "yes";
}

int report(const Erasure& erasure, std::int64_t events) {
    switch (erasure.outcome) {
    case Erasure::Outcome::unchanged:
        return fail(failed, "nothing was erased: " + erasure.reason);
    case Erasure::Outcome::remainsLeft:
        return fail(remainsLeft, "the observations are erased, but bytes of them may be left in "
                                 "the files (" +
                                     erasure.reason + "): run this again");
    case Erasure::Outcome::erased:
        break;
    }
    std::printf("Erased %lld.\n", static_cast<long long>(events));
    return EXIT_SUCCESS;
}

/// As the program itself, which uses nothing of another user's; an administrator's own variables
/// may lead there.
bool isOurs(const std::filesystem::path& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 && info.st_uid == geteuid();
}

int run(const EraseOptions& options) {
    const auto database = databasePath();
    std::error_code error;
    const bool isThere = std::filesystem::exists(database, error);
    if (error)
        return fail(failed, "the memory can't be reached: " + error.message());
    if (!isThere) {
        std::puts("Nothing is stored.");
        return EXIT_SUCCESS;
    }
    if (!isOurs(database.parent_path()) || !isOurs(database))
        return fail(failed, "the memory belongs to another user");
    // Writing the file anew takes a second one, which belongs into no folder that others share.
    setenv("SQLITE_TMPDIR", database.parent_path().c_str(), 1);
    const MemoryEraser eraser(database, options.patience);
    const auto contents = eraser.contents(options.range);
    if (!contents)
        return fail(failed, "the memory can't be read: " + eraser.reason());
    std::puts(described(*contents, SystemClock()).c_str());
    if (options.isDryRun)
        return EXIT_SUCCESS;
    if (contents->events > 0 && !options.isConfirmed) {
        if (isatty(STDIN_FILENO) == 0)
            return fail(wrongUsage, "there is nobody to ask; --yes erases without asking");
        if (!isConfirmed())
            return fail(failed, "nothing was erased");
    }
    return report(eraser.erase(options.range), contents->events);
}

} // namespace

int main(int count, char** words) {
    coreFiles::forbid();
    const auto parsed = parseEraseOptions({words + 1, words + count}, SystemClock());
    if (const auto* wrong = std::get_if<std::string>(&parsed))
        return fail(wrongUsage, *wrong + " (--help tells more)");
    const auto& options = std::get<EraseOptions>(parsed);
    if (options.wantsHelp) {
        std::fputs(usage, stdout);
        return EXIT_SUCCESS;
    }
    return run(options);
}
