#pragma once
// Reads a tokenizer.json into a WordPieceTokenizer.

#include "Linux/Embedding/WordPieceTokenizer.h"

#include <nlohmann/json.hpp>

namespace mnemora::embedding {

/// Fills one tokenizer from one document. Every step answers false when the document doesn't hold
/// what it should; the JSON library's own exceptions stand for the same and are caught in `create`.
class TokenizerReader {
  public:
    explicit TokenizerReader(const nlohmann::json& document) : document_(document) {}

    [[nodiscard]] std::optional<WordPieceTokenizer> read();

  private:
    bool readNormalizer();
    bool readModel();
    bool readVocabulary(const nlohmann::json& vocabulary, std::string_view prefix);
    bool readAddedTokens();
    bool readTemplate();
    bool readPadding();
    [[nodiscard]] std::optional<std::int64_t> idOf(const std::string& token) const;

    const nlohmann::json& document_;
    WordPieceTokenizer tokenizer_;
};

} // namespace mnemora::embedding
