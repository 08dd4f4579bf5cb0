#include "WordScore.h"

#include <algorithm>
#include <map>
#include <utility>

namespace mnemora::bench {
namespace {

using Words = std::vector<std::string>;

// Bytes above ASCII belong to letters: the sample texts have no other characters there.
bool isWordByte(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
           static_cast<unsigned char>(c) >= 0x80;
}

Words wordsOf(std::string_view text) {
    Words words;
    bool inside = false;
    for (const char c : text) {
        if (isWordByte(c) && !inside)
            words.emplace_back();
        inside = isWordByte(c);
        if (inside)
            words.back() += c;
    }
    return words;
}

template <class Item>
using Counts = std::map<Item, int>;

void countPairs(const Words& words, Counts<std::pair<std::string, std::string>>& counts) {
    for (std::size_t i = 1; i < words.size(); ++i)
        ++counts[{words[i - 1], words[i]}];
}

template <class Item>
int shared(const Counts<Item>& a, const Counts<Item>& b) {
    int sum = 0;
    for (const auto& [item, count] : a)
        if (const auto other = b.find(item); other != b.end())
            sum += std::min(count, other->second);
    return sum;
}

template <class Item>
int total(const Counts<Item>& counts) {
    int sum = 0;
    for (const auto& entry : counts)
        sum += entry.second;
    return sum;
}

double share(int part, int whole) {
    return whole == 0 ? 1 : static_cast<double>(part) / whole;
}

} // namespace

WordScore scoreWords(const std::vector<std::string>& realLines, std::string_view recognised) {
    Counts<std::string> real;
    Counts<std::string> found;
    Counts<std::pair<std::string, std::string>> realPairs;
    Counts<std::pair<std::string, std::string>> foundPairs;
    for (const auto& line : realLines) {
        const auto words = wordsOf(line);
        for (const auto& word : words)
            ++real[word];
        countPairs(words, realPairs);
    }
    const auto words = wordsOf(recognised);
    for (const auto& word : words)
        ++found[word];
    countPairs(words, foundPairs);
    const int both = shared(real, found);
    return {.words = total(real),
            .recall = share(both, total(real)),
            .precision = share(both, total(found)),
            .pairs = share(shared(realPairs, foundPairs), total(realPairs)),
            .found = total(found)};
}

} // namespace mnemora::bench
