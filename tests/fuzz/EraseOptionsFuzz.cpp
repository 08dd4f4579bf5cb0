// Fuzz target: the words behind mnemora-erase. What isn't clear must erase nothing.

#include "Erase/EraseOptions.h"
#include "Platform/SystemClock.h"
#include "fuzz/FuzzInput.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace mnemora;
    static const SystemClock clock = [] {
        setenv("TZ", "Europe/Berlin", 1);
        tzset();
        return SystemClock();
    }();
    fuzz::FuzzInput input(data, size);
    std::vector<std::string> words;
    while (!input.empty())
        words.emplace_back(input.text());
    const auto parsed = parseEraseOptions(words, clock);
    const auto* options = std::get_if<EraseOptions>(&parsed);
    if (options == nullptr || options->wantsHelp)
        return 0;
    const auto& range = options->range;
    fuzz::require(range.from < range.until);
    const auto has = [&](const char* word) {
        return std::ranges::find(words, word) != words.end();
    };
    fuzz::require(range != TimeRange{} || has("--all"));
    const auto at = std::ranges::find(words, "--day");
    if (at == words.end() || at + 1 == words.end() || *(at + 1) < "1900")
        return 0; // ICU's calendar has other days before the Gregorian ones
    const double hours = (range.until - range.from) / 3600;
    fuzz::require(hours >= 23 && hours <= 25);
    fuzz::require(clock.format(range.from, "yyyy-MM-dd") == *(at + 1));
    fuzz::require(clock.format(range.until - 1, "yyyy-MM-dd") == *(at + 1));
    return 0;
}
