#pragma once
// The sentence-embedding model of the platform.

#include <optional>
#include <string>
#include <vector>

namespace mnemora {

/// Maps a text to a vector of fixed length. Abstract so that the logic runs without the weights;
/// the real one loads them at the first text. Used by one thread at a time.
struct SentenceModel {
    virtual ~SentenceModel() = default;

    /// Length of the vectors; 0 when the model turned out to be unusable.
    [[nodiscard]] virtual int dimension() const = 0;
    /// The vector of a text; absent when the model has none for it, or can't be loaded.
    [[nodiscard]] virtual std::optional<std::vector<double>> vector(const std::string& text) = 0;
};

} // namespace mnemora
