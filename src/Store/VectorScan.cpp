#include "Store/VectorScan.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <iterator>
#include <numeric>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace mnemora {

static_assert(std::endian::native == std::endian::little,
              "stored vectors are little-endian and read in place");

SimilarityScorer::Instructions SimilarityScorer::best() {
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx512f") != 0)
        return Instructions::avx512;
    if (__builtin_cpu_supports("avx2") != 0 && __builtin_cpu_supports("fma") != 0)
        return Instructions::avx2;
#endif
    return Instructions::plain;
}

SimilarityScorer::SimilarityScorer(std::span<const float> query, Instructions use)
    : query_(query.begin(), query.end()), kernel_(plainSums) {
#if defined(__x86_64__)
    if (use == Instructions::avx512)
        kernel_ = avx512Sums;
    else if (use == Instructions::avx2)
        kernel_ = avx2Sums;
#else
    (void)use;
#endif
    const auto bytes = std::as_bytes(std::span(query_));
    queryNorm_ = std::sqrt(kernel_(query_.data(), bytes.data(), query_.size()).squares);
}

float SimilarityScorer::score(std::span<const std::byte> blob) const {
    if (blob.size() / sizeof(float) != query_.size())
        return 0;
    const Sums sums = kernel_(query_.data(), blob.data(), query_.size());
    const float denominator = queryNorm_ * std::sqrt(sums.squares);
    const float score = denominator > 0 ? sums.dot / denominator : 0;
    return std::isnan(score) ? 0 : score;
}

SimilarityScorer::Sums SimilarityScorer::plainSums(const float* query, const std::byte* vector,
                                                   std::size_t count) {
    Sums sums{.dot = 0, .squares = 0};
    for (std::size_t i = 0; i < count; ++i) {
        float element = 0;
        std::memcpy(&element, vector + i * sizeof(float), sizeof element);
        sums.dot += query[i] * element;
        sums.squares += element * element;
    }
    return sums;
}

#if defined(__x86_64__)

// Four independent sums of each kind hide the latency of the fused multiply-add; what is left of
// the length goes through masked or plain steps.

__attribute__((target("avx512f"))) SimilarityScorer::Sums
SimilarityScorer::avx512Sums(const float* query, const std::byte* vector, std::size_t count) {
    constexpr std::size_t lanes = 16;
    __m512 dot[4] = {};
    __m512 squares[4] = {};
    const auto* elements = reinterpret_cast<const float*>(vector);
    std::size_t i = 0;
    for (; i + 4 * lanes <= count; i += 4 * lanes) {
        for (std::size_t part = 0; part < 4; ++part) {
            const __m512 element = _mm512_loadu_ps(elements + i + part * lanes);
            dot[part] =
                _mm512_fmadd_ps(_mm512_loadu_ps(query + i + part * lanes), element, dot[part]);
            squares[part] = _mm512_fmadd_ps(element, element, squares[part]);
        }
    }
    for (; i < count; i += lanes) {
        const auto mask = static_cast<__mmask16>((1U << std::min(lanes, count - i)) - 1U);
        const __m512 element = _mm512_maskz_loadu_ps(mask, elements + i);
        dot[0] = _mm512_fmadd_ps(_mm512_maskz_loadu_ps(mask, query + i), element, dot[0]);
        squares[0] = _mm512_fmadd_ps(element, element, squares[0]);
    }
    const auto total = [](const __m512* sums) __attribute__((target("avx512f"))) {
        alignas(64) float parts[lanes];
        _mm512_store_ps(
            parts, _mm512_add_ps(_mm512_add_ps(sums[0], sums[1]), _mm512_add_ps(sums[2], sums[3])));
        return std::accumulate(std::begin(parts), std::end(parts), 0.0F);
    };
    return {.dot = total(dot), .squares = total(squares)};
}

__attribute__((target("avx2,fma"))) SimilarityScorer::Sums
SimilarityScorer::avx2Sums(const float* query, const std::byte* vector, std::size_t count) {
    constexpr std::size_t lanes = 8;
    __m256 dot[4] = {};
    __m256 squares[4] = {};
    const auto* elements = reinterpret_cast<const float*>(vector);
    const std::size_t whole = count - count % (4 * lanes);
    for (std::size_t i = 0; i < whole; i += 4 * lanes) {
        for (std::size_t part = 0; part < 4; ++part) {
            const __m256 element = _mm256_loadu_ps(elements + i + part * lanes);
            dot[part] =
                _mm256_fmadd_ps(_mm256_loadu_ps(query + i + part * lanes), element, dot[part]);
            squares[part] = _mm256_fmadd_ps(element, element, squares[part]);
        }
    }
    const auto total = [](const __m256* sums) __attribute__((target("avx2,fma"))) {
        const __m256 all =
            _mm256_add_ps(_mm256_add_ps(sums[0], sums[1]), _mm256_add_ps(sums[2], sums[3]));
        const __m128 half = _mm_add_ps(_mm256_castps256_ps128(all), _mm256_extractf128_ps(all, 1));
        const __m128 pair = _mm_add_ps(half, _mm_movehl_ps(half, half));
        return _mm_cvtss_f32(_mm_add_ss(pair, _mm_movehdup_ps(pair)));
    };
    const Sums rest = plainSums(query + whole, vector + whole * sizeof(float), count - whole);
    return {.dot = total(dot) + rest.dot, .squares = total(squares) + rest.squares};
}

#endif

bool BestMatches::better(const Entry& a, const Entry& b) {
    return a.match.score != b.match.score ? a.match.score > b.match.score : a.order < b.order;
}

void BestMatches::add(std::int64_t id, float score) {
    const Entry entry{.match = {.id = id, .score = score}, .order = added_++};
    if (heap_.size() < limit_) {
        heap_.push_back(entry);
        if (heap_.size() == limit_)
            std::ranges::make_heap(heap_, better);
        return;
    }
    std::ranges::pop_heap(heap_, better);
    heap_.back() = entry;
    std::ranges::push_heap(heap_, better);
}

std::vector<SemanticMatch> BestMatches::sorted() && {
    std::ranges::sort(heap_, better);
    std::vector<SemanticMatch> matches;
    matches.reserve(heap_.size());
    for (const Entry& entry : heap_)
        matches.push_back(entry.match);
    return matches;
}

} // namespace mnemora
