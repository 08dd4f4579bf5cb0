#pragma once
// Text as its reader perceives it: characters are extended grapheme clusters (UAX 29), case and
// normal form are Unicode's, by ICU. All functions take and give UTF-8 and may be called from any
// thread; ill-formed sequences count as one character each and never fail.

#include <functional>
#include <string>
#include <string_view>

namespace mnemora {

/// Calls `visit` with every character in order until it returns false.
void forEachCharacter(std::string_view text, const std::function<bool(std::string_view)>& visit);

/// The first `count` characters; the whole text when it has fewer, nothing for a count below 1.
[[nodiscard]] std::string_view firstCharacters(std::string_view text, long long count);

/// The first code point of a text; U+FFFD for an ill-formed one, 0 for the empty text.
[[nodiscard]] char32_t firstCodePoint(std::string_view text);

/// Without white space and line breaks (Unicode White_Space) at both ends.
[[nodiscard]] std::string_view trimmed(std::string_view text);

/// In lower case by the full, language-independent Unicode mapping.
[[nodiscard]] std::string lowercased(std::string_view text);

/// In normal form C: canonically equivalent texts become equal.
[[nodiscard]] std::string normalized(std::string_view text);

} // namespace mnemora
