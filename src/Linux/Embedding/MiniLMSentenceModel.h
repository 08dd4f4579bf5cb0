#pragma once
// Sentence vectors by a MiniLM model (Wang et al., 2020; trained for sentences as
// sentence-transformers/all-MiniLM-L6-v2) on OpenVINO's CPU device.

#include "Linux/Embedding/EmbeddingModule.h"
#include "Linux/Embedding/TransformerRunner.h"
#include "Linux/Embedding/WordPieceTokenizer.h"

namespace mnemora::embedding {

/// The loaded model. The vectors have length 1, so that their dot product is their cosine.
class MiniLMSentenceModel final : public SentenceModel {
  public:
    /// What the model was trained with; a longer text counts by its beginning.
    static constexpr std::size_t maxTokens = 256;

    /// Loads the tokenizer and the weights. Null when a file is damaged or the runtime refuses.
    [[nodiscard]] static std::unique_ptr<SentenceModel> create(const ModelFiles& files);

    MiniLMSentenceModel(WordPieceTokenizer tokenizer, std::unique_ptr<TransformerRunner> runner)
        : tokenizer_(std::move(tokenizer)), runner_(std::move(runner)) {}

    [[nodiscard]] int dimension() const override { return runner_->dimension(); }
    [[nodiscard]] std::optional<std::vector<double>> vector(const std::string& text) override;

  private:
    WordPieceTokenizer tokenizer_;
    std::unique_ptr<TransformerRunner> runner_;
};

} // namespace mnemora::embedding
