#include "Linux/Embedding/BertText.h"

#include <algorithm>
#include <array>
#include <limits>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

namespace mnemora::embedding {
namespace {

constexpr UChar32 replacementCharacter = 0xFFFD;
constexpr UChar32 capitalIWithDot = 0x130;

struct Range {
    UChar32 first;
    UChar32 last;
};

/// The CJK ideograph blocks as BERT's tokenizer names them: neither kana nor Hangul. The gap from
/// 2B820 to 2B91F is the library's own; the vocabulary was made with it.
constexpr std::array ideographs = {Range{0x3400, 0x4DBF},   Range{0x4E00, 0x9FFF},
                                   Range{0xF900, 0xFAFF},   Range{0x20000, 0x2A6DF},
                                   Range{0x2A700, 0x2B73F}, Range{0x2B740, 0x2B81F},
                                   Range{0x2B920, 0x2CEAF}, Range{0x2F800, 0x2FA1F}};

bool isIdeograph(UChar32 c) {
    return std::any_of(ideographs.begin(), ideographs.end(),
                       [c](const Range& range) { return c >= range.first && c <= range.last; });
}

bool isDropped(UChar32 c) {
    if (c == '\t' || c == '\n' || c == '\r')
        return false;
    constexpr std::uint32_t other = U_GC_CC_MASK | U_GC_CF_MASK | U_GC_CO_MASK;
    return c == replacementCharacter || (U_GET_GC_MASK(c) & other) != 0;
}

bool isPunctuation(UChar32 c) {
    // BERT counts every printable ASCII character that is no letter or digit, $ and + too.
    if (c < 0x80)
        return c > ' ' && c < 0x7F && u_isalnum(c) == 0;
    return (U_GET_GC_MASK(c) & U_GC_P_MASK) != 0;
}

void appendCleaned(icu::UnicodeString& output, UChar32 c, const BertNormalization& steps) {
    if (steps.cleanText) {
        if (isDropped(c))
            return;
        if (u_isUWhiteSpace(c) != 0)
            c = ' ';
    }
    if (steps.chineseChars && isIdeograph(c))
        output.append(UChar32(' ')).append(c).append(UChar32(' '));
    else
        output.append(c);
}

icu::UnicodeString cleaned(std::string_view text, const BertNormalization& steps) {
    constexpr std::size_t longest = std::numeric_limits<std::int32_t>::max() / 8;
    const auto size = static_cast<std::int32_t>(std::min(text.size(), longest));
    const auto input = icu::UnicodeString::fromUTF8({text.data(), size});
    icu::UnicodeString output;
    for (std::int32_t at = 0; at < input.length(); at = input.moveIndex32(at, 1))
        appendCleaned(output, input.char32At(at), steps);
    return output;
}

icu::UnicodeString decomposed(const icu::UnicodeString& text) {
    UErrorCode status = U_ZERO_ERROR;
    const auto* nfd = icu::Normalizer2::getNFDInstance(status);
    if (U_FAILURE(status))
        return text;
    auto result = nfd->normalize(text, status);
    return U_SUCCESS(status) ? result : text;
}

/// Collects words while characters of the normalised text come in.
class WordCutter {
  public:
    void take(UChar32 c) {
        if (u_isUWhiteSpace(c) != 0)
            finish();
        else if (isPunctuation(c)) {
            finish();
            word_.append(c);
            finish();
        } else
            word_.append(c);
    }

    std::vector<std::string> words() && {
        finish();
        return std::move(words_);
    }

  private:
    void finish() {
        if (word_.isEmpty())
            return;
        word_.toUTF8String(words_.emplace_back());
        word_.remove();
    }

    icu::UnicodeString word_;
    std::vector<std::string> words_;
};

} // namespace

std::vector<std::string> bertWords(std::string_view text, const BertNormalization& steps) {
    auto normal = cleaned(text, steps);
    if (steps.stripAccents)
        normal = decomposed(normal);
    WordCutter cutter;
    for (std::int32_t at = 0; at < normal.length(); at = normal.moveIndex32(at, 1)) {
        const UChar32 c = normal.char32At(at);
        if (steps.stripAccents && u_charType(c) == U_NON_SPACING_MARK)
            continue;
        cutter.take(steps.lowercase ? u_tolower(c) : c);
        // The one character whose full lower case is longer than its simple one.
        if (steps.lowercase && c == capitalIWithDot)
            cutter.take(0x307);
    }
    return std::move(cutter).words();
}

} // namespace mnemora::embedding
