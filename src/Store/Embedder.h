#pragma once
// Text to vector: what the store and the search use of a sentence-embedding model.

#include "Platform/SentenceModel.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace mnemora {

/// Abstract so that tests can choose vectors. One thread at a time.
struct Embedder {
    virtual ~Embedder() = default;

    /// Length of the vectors that the model produces; 0 when there is no usable model.
    [[nodiscard]] virtual int dimension() const = 0;
    /// Whether there is a model and its dimension is at least 1. Checked before every use.
    [[nodiscard]] virtual bool isAvailable() const = 0;
    /// The vector of a text; absent when nothing can be embedded.
    [[nodiscard]] virtual std::optional<std::vector<float>> embed(std::string_view text) = 0;
};

/// The embedder over the platform's sentence model for one language.
class NLSentenceEmbedder : public Embedder {
  public:
    /// The model reads a limited number of tokens; what lies far behind would only cost time.
    static constexpr long long maxCharacters = 1200;

    /// Asks the platform for its model; writes one error line when it has none. No retry follows.
    explicit NLSentenceEmbedder(const std::string& language);

    [[nodiscard]] int dimension() const override;
    [[nodiscard]] bool isAvailable() const override;
    /// Embeds the first 1,200 characters, trimmed. Absent for a text of white space only, and
    /// when the model gives nothing.
    [[nodiscard]] std::optional<std::vector<float>> embed(std::string_view text) override;

  private:
    std::shared_ptr<SentenceModel> emb_;
};

} // namespace mnemora
