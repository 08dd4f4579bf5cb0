#pragma once
// What is done to text where it enters the program, so that everything below sees valid UTF-8.

#include <string>
#include <string_view>

namespace mnemora {

/// The text as valid UTF-8: every maximal ill-formed sequence becomes one U+FFFD (Unicode 15,
/// section 3.9, "U+FFFD Substitution of Maximal Subparts"). NUL characters stay.
[[nodiscard]] std::string repairedUtf8(std::string_view text);

/// As repairedUtf8, and without NUL characters: SQLite reads a bound text up to the first one.
/// For window titles, page addresses and all other text that other programs hand to us.
[[nodiscard]] std::string cleanText(std::string_view text);

} // namespace mnemora
