#include "Store/VectorScan.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <random>

namespace mnemora {
namespace {

using Instructions = SimilarityScorer::Instructions;

std::vector<Instructions> runnableHere() {
    std::vector<Instructions> sets = {Instructions::plain};
    if (SimilarityScorer::best() != Instructions::plain)
        sets.push_back(Instructions::avx2);
    if (SimilarityScorer::best() == Instructions::avx512)
        sets.push_back(Instructions::avx512);
    return sets;
}

TEST(SimilarityScorer, GivesTheCosineAtEveryLengthAndAddress) {
    std::mt19937 random(7);
    std::normal_distribution<float> normal;
    for (const std::size_t length :
         {1U, 3U, 7U, 8U, 15U, 16U, 31U, 33U, 63U, 64U, 65U, 384U, 387U}) {
        std::vector<float> query(length);
        std::vector<float> stored(length);
        std::ranges::generate(query, [&] { return normal(random); });
        std::ranges::generate(stored, [&] { return normal(random); });
        double dot = 0;
        double squares = 0;
        double querySquares = 0;
        for (std::size_t i = 0; i < length; ++i) {
            dot += double{query[i]} * double{stored[i]};
            squares += double{stored[i]} * double{stored[i]};
            querySquares += double{query[i]} * double{query[i]};
        }
        std::vector<std::byte> bytes(length * 4 + 6);
        for (const std::size_t offset : {0U, 1U, 3U})
            for (const Instructions use : runnableHere()) {
                std::memcpy(bytes.data() + offset, stored.data(), length * 4);
                const SimilarityScorer scorer(query, use);
                for (const std::size_t trailing : {0U, 3U})
                    EXPECT_NEAR(
                        scorer.score(std::span(bytes).subspan(offset, length * 4 + trailing)),
                        dot / std::sqrt(squares * querySquares), 1e-5)
                        << length << " at " << offset << " by " << static_cast<int>(use);
            }
    }
}

TEST(BestMatches, EqualAFullStableSort) {
    std::mt19937 random(11);
    for (const std::size_t count : {0U, 1U, 30U, 31U, 500U}) {
        std::vector<SemanticMatch> all;
        for (std::size_t i = 0; i < count; ++i) // few distinct scores, so that ties are common
            all.push_back({.id = static_cast<std::int64_t>(i * 3),
                           .score = static_cast<float>(random() % 9) / 4 - 1});
        auto sorted = all;
        std::ranges::stable_sort(sorted, std::ranges::greater{}, &SemanticMatch::score);
        for (const std::size_t limit : {0U, 1U, 7U, 30U, 1000U}) {
            BestMatches best(limit);
            for (const auto& match : all)
                if (best.wouldKeep(match.score))
                    best.add(match.id, match.score);
            const std::vector<SemanticMatch> expected(
                sorted.begin(), sorted.begin() + static_cast<long>(std::min(limit, count)));
            EXPECT_EQ(std::move(best).sorted(), expected) << count << " cut to " << limit;
        }
    }
}

} // namespace
} // namespace mnemora
