#include "Text/Characters.h"

#include "Text/Encoding.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <unicode/brkiter.h>
#include <unicode/bytestream.h>
#include <unicode/casemap.h>
#include <unicode/locid.h>
#include <unicode/normalizer2.h>
#include <unicode/stringpiece.h>
#include <unicode/uchar.h>
#include <unicode/utext.h>
#include <unicode/utf8.h>

namespace mnemora {
namespace {

struct CloseText {
    void operator()(UText* text) const { utext_close(text); }
};
using TextHandle = std::unique_ptr<UText, CloseText>;

bool isAscii(char c) {
    return static_cast<signed char>(c) >= 0;
}

/// Making an iterator parses rule data, so every thread keeps its own.
icu::BreakIterator* characterIterator() {
    thread_local const std::unique_ptr<icu::BreakIterator> iterator = [] {
        UErrorCode status = U_ZERO_ERROR;
        std::unique_ptr<icu::BreakIterator> made(
            icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
        return U_SUCCESS(status) ? std::move(made) : nullptr;
    }();
    return iterator.get();
}

/// End of the run that needs no Unicode rules: ASCII characters each of which is followed by
/// another one (a combining mark may follow the last).
size_t simpleRunEnd(std::string_view text, size_t from) {
    while (from + 1 < text.size() && isAscii(text[from]) && isAscii(text[from + 1]))
        ++from;
    if (from + 1 == text.size() && isAscii(text[from]))
        ++from;
    return from;
}

/// Where the stretch ends that needs the rules: between two ASCII characters in a row there is
/// always a boundary, unless they are CR LF.
size_t complexRunEnd(std::string_view text, size_t from) {
    const auto boundary = [&](size_t at) {
        return isAscii(text[at]) && isAscii(text[at - 1]) &&
               !(text[at] == '\n' && text[at - 1] == '\r');
    };
    while (from < text.size() && !boundary(from))
        ++from;
    return from;
}

/// Visits the characters of a stretch by the Unicode rules. False when the visitor had enough.
bool visitByRules(std::string_view text, const std::function<bool(std::string_view)>& visit) {
    UErrorCode status = U_ZERO_ERROR;
    const TextHandle handle(
        utext_openUTF8(nullptr, text.data(), static_cast<std::int64_t>(text.size()), &status));
    icu::BreakIterator* iterator = characterIterator();
    if (U_SUCCESS(status) && iterator != nullptr)
        iterator->setText(handle.get(), status);
    if (U_FAILURE(status) || iterator == nullptr)
        return visit(text);
    std::int32_t start = iterator->first();
    for (std::int32_t end = iterator->next(); end != icu::BreakIterator::DONE;
         start = end, end = iterator->next()) {
        const auto length = static_cast<size_t>(end - start);
        if (!visit(text.substr(static_cast<size_t>(start), length)))
            return false;
    }
    return true;
}

} // namespace

void forEachCharacter(std::string_view text, const std::function<bool(std::string_view)>& visit) {
    size_t at = 0;
    while (at < text.size()) {
        for (const size_t end = simpleRunEnd(text, at); at < end;) {
            const bool lineBreak = text[at] == '\r' && at + 1 < text.size() && text[at + 1] == '\n';
            const size_t length = lineBreak ? 2 : 1;
            if (!visit(text.substr(at, length)))
                return;
            at += length;
        }
        if (at >= text.size())
            return;
        const size_t end = complexRunEnd(text, at + 1);
        if (!visitByRules(text.substr(at, end - at), visit))
            return;
        at = end;
    }
}

std::string_view firstCharacters(std::string_view text, long long count) {
    if (count < 1)
        return {};
    size_t end = 0;
    forEachCharacter(text, [&](std::string_view character) {
        end += character.size();
        return --count > 0;
    });
    return text.substr(0, end);
}

char32_t firstCodePoint(std::string_view text) {
    if (text.empty())
        return 0;
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    std::int32_t at = 0;
    UChar32 c = 0;
    U8_NEXT(bytes, at, static_cast<std::int32_t>(std::min<size_t>(text.size(), 4)), c);
    return c < 0 ? U'\uFFFD' : static_cast<char32_t>(c);
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty()) {
        const char32_t c = firstCodePoint(text);
        if (!u_isUWhiteSpace(static_cast<UChar32>(c)))
            break;
        text.remove_prefix(static_cast<size_t>(U8_LENGTH(static_cast<UChar32>(c))));
    }
    while (!text.empty()) {
        // A code point has at most four bytes.
        const std::string_view tail = text.substr(text.size() - std::min<size_t>(text.size(), 4));
        const auto* bytes = reinterpret_cast<const std::uint8_t*>(tail.data());
        const auto size = static_cast<std::int32_t>(tail.size());
        std::int32_t at = size;
        UChar32 c = 0;
        U8_PREV(bytes, 0, at, c);
        if (c < 0 || !u_isUWhiteSpace(c))
            break;
        text.remove_suffix(static_cast<size_t>(size - at));
    }
    return text;
}

std::string lowercased(std::string_view text) {
    std::string result(text);
    if (std::ranges::all_of(text, isAscii)) {
        std::ranges::transform(result, result.begin(), [](char c) {
            return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
        });
        return result;
    }
    if (text.size() > static_cast<size_t>(std::numeric_limits<std::int32_t>::max()))
        return result;
    std::string lower;
    icu::StringByteSink<std::string> sink(&lower);
    UErrorCode status = U_ZERO_ERROR;
    icu::CaseMap::utf8ToLower("", 0,
                              icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())),
                              sink, nullptr, status);
    return U_SUCCESS(status) ? lower : result;
}

std::string normalized(std::string_view text) {
    if (std::ranges::all_of(text, isAscii) ||
        text.size() > static_cast<size_t>(std::numeric_limits<std::int32_t>::max()))
        return std::string(text);
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2* form = icu::Normalizer2::getNFCInstance(status);
    if (U_FAILURE(status))
        return std::string(text);
    std::string result;
    icu::StringByteSink<std::string> sink(&result);
    form->normalizeUTF8(0, icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())),
                        sink, nullptr, status);
    return U_SUCCESS(status) ? result : std::string(text);
}

} // namespace mnemora
