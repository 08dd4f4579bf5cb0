#include "Speech/WordError.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <numeric>

namespace mnemora::bench {
namespace {

constexpr std::array small{"zero",    "one",     "two",       "three",    "four",
                           "five",    "six",     "seven",     "eight",    "nine",
                           "ten",     "eleven",  "twelve",    "thirteen", "fourteen",
                           "fifteen", "sixteen", "seventeen", "eighteen", "nineteen"};
constexpr std::array tens{"",      "",      "twenty",  "thirty", "forty",
                          "fifty", "sixty", "seventy", "eighty", "ninety"};

void appendNumber(std::vector<std::string>& words, const std::string& digits) {
    const auto value = static_cast<std::size_t>(std::stoi(digits));
    if (value >= small.size())
        words.emplace_back(tens[value / 10]);
    if (value < small.size() || value % 10 != 0)
        words.emplace_back(small[value < small.size() ? value : value % 10]);
}

void appendWord(std::vector<std::string>& words, const std::string& word) {
    static const std::map<std::string, std::string> shortForms{
        {"mr", "mister"}, {"mrs", "missus"}, {"okay", "ok"}};
    if (word.empty())
        return;
    if (word.size() <= 2 && std::ranges::all_of(word, [](unsigned char c) { return isdigit(c); }))
        return appendNumber(words, word);
    const auto found = shortForms.find(word);
    words.push_back(found == shortForms.end() ? word : found->second);
}

} // namespace

std::vector<std::string> spokenWords(std::string_view text) {
    std::vector<std::string> words;
    std::string word;
    for (const char letter : text) {
        const auto byte = static_cast<unsigned char>(letter);
        if (std::isalnum(byte) != 0)
            word += static_cast<char>(std::tolower(byte));
        else if (letter != '\'') {
            appendWord(words, word);
            word.clear();
        }
    }
    appendWord(words, word);
    return words;
}

int wordErrors(const std::vector<std::string>& spoken, const std::vector<std::string>& heard) {
    std::vector<int> row(heard.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (const auto& word : spoken) {
        int diagonal = row[0]++;
        for (std::size_t i = 0; i < heard.size(); ++i) {
            const int replaced = diagonal + (word == heard[i] ? 0 : 1);
            diagonal = row[i + 1];
            row[i + 1] = std::min({replaced, row[i] + 1, row[i + 1] + 1});
        }
    }
    return row.back();
}

} // namespace mnemora::bench
