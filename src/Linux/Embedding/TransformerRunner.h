#pragma once
// A BERT-style encoder on OpenVINO: token numbers in, one vector a token out.

#include "Linux/Embedding/EmbeddingModule.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace mnemora::embedding {

/// One compiled network, run on the caller's thread. One thread at a time. OpenVINO reports its
/// failures by exceptions, which this class lets through: the module's door stops them.
class TransformerRunner {
  public:
    /// Takes the compiled network from `files.compiled`, else compiles it and puts it there. Null
    /// when the network is of another kind than `files` says.
    [[nodiscard]] static std::unique_ptr<TransformerRunner> create(const ModelFiles& files);
    ~TransformerRunner();
    TransformerRunner(const TransformerRunner&) = delete;
    TransformerRunner& operator=(const TransformerRunner&) = delete;

    /// Width of the vectors.
    [[nodiscard]] int dimension() const;

    /// The last hidden states, row by row, of the first `length` tokens of `ids`; the tokens after
    /// them only fill up. Valid until the next call.
    [[nodiscard]] std::span<const float> run(std::span<const std::int64_t> ids, std::size_t length);

  private:
    struct Network;

    explicit TransformerRunner(std::unique_ptr<Network> network);
    void giveMemoryBack();

    std::unique_ptr<Network> network_;
    std::vector<float> states_;
    std::chrono::steady_clock::time_point lastRun_{};
    bool holdsMuch_ = false; // working memory of a long text
};

} // namespace mnemora::embedding
