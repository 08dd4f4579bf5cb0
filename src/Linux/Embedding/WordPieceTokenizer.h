#pragma once
// From a text to the token numbers of a BERT-style model: WordPiece (Wu et al., "Google's Neural
// Machine Translation System", 2016) as the model's own tokenizer.json describes it.

#include "Linux/Embedding/BertText.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace mnemora::embedding {

/// A tokenizer for one model. Immutable once made; any thread.
class WordPieceTokenizer {
  public:
    /// Reads a tokenizer.json (format of the Hugging Face tokenizers library, version "1.0").
    /// Absent when it is no such file, or asks for anything but BertNormalizer, BertPreTokenizer,
    /// WordPiece and a template of special tokens around one text. The file's own truncation and
    /// padding are left aside: the caller says how long.
    [[nodiscard]] static std::optional<WordPieceTokenizer> create(std::string_view json);

    /// The token numbers of a text, the template's special tokens included, at most `maxTokens`
    /// (never fewer than the template's own). Any bytes are fine as text.
    [[nodiscard]] std::vector<std::int64_t> encode(std::string_view text,
                                                   std::size_t maxTokens) const;

    /// One more than the largest number that `encode` can give.
    [[nodiscard]] std::int64_t vocabularySize() const { return vocabularySize_; }
    /// The number that fills up a batch; the attention mask hides it.
    [[nodiscard]] std::int64_t padding() const { return padding_; }

  private:
    friend class TokenizerReader;
    using Ids = std::vector<std::int64_t>;
    using Pieces = std::unordered_map<std::string_view, std::int64_t>;

    /// A token that stands for itself in the raw text, such as "[MASK]".
    struct AddedToken {
        std::string content;
        std::int64_t id;
    };
    struct Occurrence {
        std::size_t at;
        const AddedToken* token;
    };

    WordPieceTokenizer() = default;

    [[nodiscard]] std::optional<Occurrence> nextAdded(std::string_view text) const;
    void appendText(Ids& ids, std::string_view text, std::size_t limit) const;
    void appendWord(Ids& ids, std::string_view word) const;

    // The pieces' characters one after the other; a vector, since its content stays in place when
    // the tokenizer moves and the maps' keys point into it.
    std::vector<char> characters_;
    Pieces initial_;    // whole entries, which begin a word
    Pieces continuing_; // entries that go on within a word, without their prefix
    std::vector<AddedToken> added_;
    Ids before_; // the template's tokens around the text
    Ids after_;
    BertNormalization normalization_;
    std::size_t maxCharactersPerWord_ = 0;
    std::int64_t unknown_ = 0;
    std::int64_t padding_ = 0;
    std::int64_t vocabularySize_ = 0;
};

} // namespace mnemora::embedding
