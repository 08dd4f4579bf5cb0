// What the first text costs and how much memory the model takes, each in a fresh process: cold
// (no compiled model in the cache) and warm.

#include "Linux/Embedding/LazySentenceModel.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto longerThanABatch = std::chrono::milliseconds(300);

double millisecondsSince(Clock::time_point begin) {
    return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

/// A line of /proc/self/status, in MiB.
double resident(const std::string& name) {
    std::ifstream status("/proc/self/status");
    std::string word;
    double kibibytes = 0;
    while (status >> word)
        if (word == name + ":" && status >> kibibytes)
            break;
    return kibibytes / 1024;
}

void printMemory(const char* when, double anonBefore, double fileBefore) {
    std::printf("    %-34s RssAnon +%5.1f MiB   RssFile +%5.1f MiB\n", when,
                resident("RssAnon") - anonBefore, resident("RssFile") - fileBefore);
}

std::string wordsText(int words) {
    std::string text;
    for (int i = 0; i < words; ++i)
        text += "word ";
    return text;
}

int measure(const char* name, const std::filesystem::path& cache) {
    auto folders = mnemora::embedding::Folders::installed();
    folders.cache = cache;
    const double anon = resident("RssAnon");
    const double file = resident("RssFile");
    const auto begin = Clock::now();
    const auto model = mnemora::makeSentenceModel("en", folders);
    const double known = millisecondsSince(begin);
    if (!model || !model->vector("what did Ana write about the budget"))
        return 1;
    std::printf("%s: known after %.2f ms, first vector after %.1f ms\n", name, known,
                millisecondsSince(begin));
    printMemory("after the first text", anon, file);
    for (const int words : {10, 30, 60, 120, 180, 254, 254, 254})
        if (!model->vector(wordsText(words)))
            return 1;
    printMemory("within a batch of all lengths", anon, file);
    std::this_thread::sleep_for(longerThanABatch);
    const auto lone = Clock::now();
    if (!model->vector(wordsText(254)))
        return 1;
    std::printf("    a lone text of 256 tokens: %.1f ms\n", millisecondsSince(lone));
    printMemory("after the lone text", anon, file);
    // What a day of observations leaves, one text every few seconds.
    for (const char* round : {"first", "second", "third"}) {
        for (const int words : {10, 30, 60, 120, 180, 254, 20, 90}) {
            std::this_thread::sleep_for(longerThanABatch);
            if (!model->vector(wordsText(words)))
                return 1;
        }
        printMemory((std::string("after lone texts, ") + round + " round").c_str(), anon, file);
    }
    std::fflush(stdout);
    return 0;
}

bool measureInAProcess(const char* name, const std::filesystem::path& cache) {
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0)
        _exit(measure(name, cache));
    int status = 1;
    return child > 0 && waitpid(child, &status, 0) == child && status == 0;
}

} // namespace

int main() {
    std::string name = std::filesystem::temp_directory_path() / "mnemora-bench-XXXXXX";
    const std::filesystem::path folder = mkdtemp(name.data());
    bool good = measureInAProcess("cold", folder / "cache");
    for (int round = 0; round < 3; ++round)
        good = measureInAProcess("warm", folder / "cache") && good;
    std::filesystem::remove_all(folder);
    return good ? 0 : 1;
}
