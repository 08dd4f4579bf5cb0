#pragma once
// Cosine similarity of one query vector with many stored ones, and the best of them.

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace mnemora {

/// An event and how similar it is.
struct SemanticMatch {
    std::int64_t id = 0;
    float score = 0;

    bool operator==(const SemanticMatch&) const = default;
};

/// Scores stored vectors against one query vector in single precision, by the widest vector
/// instructions that this processor has.
class SimilarityScorer {
  public:
    /// The instruction sets that there is code for.
    enum class Instructions { plain, avx2, avx512 };

    /// The widest set that runs here.
    [[nodiscard]] static Instructions best();

    explicit SimilarityScorer(std::span<const float> query, Instructions use = best());

    /// Cosine similarity with a stored vector: little-endian floats at any address, trailing
    /// bytes that make no whole float left out. 0 when the lengths differ, when either vector is
    /// all zeros and when the result is no number.
    [[nodiscard]] float score(std::span<const std::byte> blob) const;

  private:
    struct Sums {
        float dot;
        float squares;
    };
    using Kernel = Sums (*)(const float* query, const std::byte* vector, std::size_t count);

    [[nodiscard]] static Sums plainSums(const float* query, const std::byte* vector,
                                        std::size_t count);
#if defined(__x86_64__)
    [[nodiscard]] static Sums avx2Sums(const float* query, const std::byte* vector,
                                       std::size_t count);
    [[nodiscard]] static Sums avx512Sums(const float* query, const std::byte* vector,
                                         std::size_t count);
#endif

    std::vector<float> query_;
    float queryNorm_ = 0;
    Kernel kernel_;
};

/// Keeps the best `limit` matches of those that come by, as sorting all of them by falling score
/// with a stable sort and cutting would.
class BestMatches {
  public:
    explicit BestMatches(std::size_t limit) : limit_(limit) {}

    /// Whether a match of this score would be among the best so far. A later match of equal score
    /// comes behind all that are kept.
    [[nodiscard]] bool wouldKeep(float score) const {
        return heap_.size() < limit_ || (limit_ > 0 && score > heap_.front().match.score);
    }
    /// Adds a match that would be kept.
    void add(std::int64_t id, float score);
    /// The kept matches, best first; equal scores in the order in which they were added.
    [[nodiscard]] std::vector<SemanticMatch> sorted() &&;

  private:
    struct Entry {
        SemanticMatch match;
        std::size_t order;
    };
    [[nodiscard]] static bool better(const Entry& a, const Entry& b);

    std::size_t limit_;
    std::size_t added_ = 0;
    std::vector<Entry> heap_; // once full, a heap with the worst entry on top
};

} // namespace mnemora
