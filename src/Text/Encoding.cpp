#include "Text/Encoding.h"

#include <algorithm>
#include <cstdint>
#include <unicode/utf8.h>

namespace mnemora {
namespace {

bool isAscii(std::string_view text) {
    return std::ranges::all_of(text, [](char c) { return static_cast<signed char>(c) >= 0; });
}

} // namespace

std::string repairedUtf8(std::string_view text) {
    if (isAscii(text))
        return std::string(text);
    std::string result;
    result.reserve(text.size());
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    const auto size = static_cast<std::int64_t>(text.size());
    for (std::int64_t at = 0; at < size;) {
        const std::int64_t start = at;
        UChar32 c = 0;
        U8_NEXT(bytes, at, size, c);
        if (c < 0)
            result += "\xEF\xBF\xBD";
        else
            result.append(text, static_cast<size_t>(start), static_cast<size_t>(at - start));
    }
    return result;
}

std::string cleanText(std::string_view text) {
    std::string result = repairedUtf8(text);
    std::erase(result, '\0');
    return result;
}

} // namespace mnemora
