#include "Linux/X11/PropertyText.h"

#include "Text/Encoding.h"

#include <algorithm>
#include <memory>
#include <unicode/ucnv.h>
#include <unicode/unistr.h>

namespace mnemora::x11 {
namespace {

struct CloseConverter {
    void operator()(UConverter* converter) const { ucnv_close(converter); }
};

std::string withoutUtf8Segments(std::string_view bytes) {
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<UConverter, CloseConverter> converter(
        ucnv_open("x11-compound-text", &status));
    if (U_FAILURE(status))
        return fromLatin1(bytes);
    const icu::UnicodeString decoded(bytes.data(), static_cast<int32_t>(bytes.size()),
                                     converter.get(), status);
    std::string text;
    decoded.toUTF8String(text);
    return text;
}

} // namespace

std::string fromLatin1(std::string_view bytes) {
    std::string text;
    text.reserve(bytes.size());
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        if (value < 0x80) {
            text += byte;
        } else {
            text += static_cast<char>(0xC0 | (value >> 6));
            text += static_cast<char>(0x80 | (value & 0x3F));
        }
    }
    return text;
}

std::string fromCompoundText(std::string_view bytes) {
    // ICU's converter doesn't know the segments in UTF-8 that X libraries write for whatever no
    // other set of theirs holds.
    constexpr std::string_view begin = "\x1B%G";
    constexpr std::string_view end = "\x1B%@";
    std::string text;
    while (!bytes.empty()) {
        const auto from = std::min(bytes.find(begin), bytes.size());
        text += withoutUtf8Segments(bytes.substr(0, from));
        bytes.remove_prefix(std::min(from + begin.size(), bytes.size()));
        const auto to = std::min(bytes.find(end), bytes.size());
        text += bytes.substr(0, to);
        bytes.remove_prefix(std::min(to + end.size(), bytes.size()));
    }
    return text;
}

std::pair<std::string, std::string> instanceAndClass(std::string_view bytes) {
    const auto split = bytes.find('\0');
    const auto instance = bytes.substr(0, split);
    auto name = split == std::string_view::npos ? std::string_view() : bytes.substr(split + 1);
    name = name.substr(0, name.find('\0'));
    return {cleanText(fromLatin1(instance)), cleanText(fromLatin1(name))};
}

} // namespace mnemora::x11
