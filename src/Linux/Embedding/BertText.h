#pragma once
// Text as BERT models expect it: normalised, then cut into words and single punctuation marks
// (Devlin et al., "BERT", 2018; the steps and their order are those of the BertNormalizer and
// BertPreTokenizer of the Hugging Face tokenizers library).

#include <string>
#include <string_view>
#include <vector>

namespace mnemora::embedding {

/// Which steps of the normalisation a model asks for.
struct BertNormalization {
    bool cleanText = true;    // drop control characters, turn white space into blanks
    bool chineseChars = true; // every ideograph becomes a word of its own
    bool stripAccents = true; // decompose (NFD) and drop the non-spacing marks
    bool lowercase = true;

    bool operator==(const BertNormalization&) const = default;
};

/// The words of a text in order, none of them empty, UTF-8. Any bytes are fine: what is no UTF-8
/// counts as U+FFFD. Any thread.
[[nodiscard]] std::vector<std::string> bertWords(std::string_view text,
                                                 const BertNormalization& normalization);

} // namespace mnemora::embedding
