#pragma once
// Word error rate: words put in, left out or replaced, by the words that were really spoken.

#include <string>
#include <string_view>
#include <vector>

namespace mnemora::bench {

/// Words in lower case without punctuation; numbers below a hundred and a few short forms spelt
/// out, since a recogniser may write "Mr." and "10" where the transcript says "mister" and "ten".
[[nodiscard]] std::vector<std::string> spokenWords(std::string_view text);

/// The least number of words to put in, leave out or replace to make one list of the other.
[[nodiscard]] int wordErrors(const std::vector<std::string>& spoken,
                             const std::vector<std::string>& heard);

} // namespace mnemora::bench
