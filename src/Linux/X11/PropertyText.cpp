#include "Linux/X11/PropertyText.h"

#include <memory>
#include <unicode/ucnv.h>
#include <unicode/unistr.h>

namespace mnemora::x11 {
namespace {

struct CloseConverter {
    void operator()(UConverter* converter) const { ucnv_close(converter); }
};

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

} // namespace mnemora::x11
