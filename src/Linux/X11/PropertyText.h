#pragma once
// The encodings of text properties (ICCCM 2.7.1) as UTF-8.

#include <string>
#include <string_view>
#include <utility>

namespace mnemora::x11 {

/// Type STRING: ISO 8859-1.
[[nodiscard]] std::string fromLatin1(std::string_view bytes);

/// Type COMPOUND_TEXT: the consortium's use of ISO 2022. What can't be decoded becomes U+FFFD.
[[nodiscard]] std::string fromCompoundText(std::string_view bytes);

/// A WM_CLASS property: the instance and the class, NUL-terminated each, in Latin-1 (ICCCM
/// 4.1.2.5). Clean texts, empty where the property is cut short.
[[nodiscard]] std::pair<std::string, std::string> instanceAndClass(std::string_view bytes);

} // namespace mnemora::x11
