#pragma once
// The encodings of text properties (ICCCM 2.7.1) as UTF-8.

#include <string>
#include <string_view>

namespace mnemora::x11 {

/// Type STRING: ISO 8859-1.
[[nodiscard]] std::string fromLatin1(std::string_view bytes);

/// Type COMPOUND_TEXT: the consortium's use of ISO 2022. What can't be decoded becomes U+FFFD.
[[nodiscard]] std::string fromCompoundText(std::string_view bytes);

} // namespace mnemora::x11
