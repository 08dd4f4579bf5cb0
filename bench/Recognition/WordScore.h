#pragma once
// How well a recognised text agrees with the text that was really there.

#include <string>
#include <string_view>
#include <vector>

namespace mnemora::bench {

/// Shares of 0..1. A word is a run of letters and digits; case counts, order doesn't, and a word
/// that stands there twice has to be found twice.
struct WordScore {
    int words = 0;        ///< in the real text
    double recall = 1;    ///< of the real words, those found
    double precision = 1; ///< of the words found, those that are real
    double pairs = 1;     ///< of the neighbours in a real line, those that are neighbours still
    int found = 0;        ///< words found
};

[[nodiscard]] WordScore scoreWords(const std::vector<std::string>& realLines,
                                   std::string_view recognised);

} // namespace mnemora::bench
