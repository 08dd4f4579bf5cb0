#include "Store/Embedder.h"
#include "fakes/CapturedStderr.h"
#include "fakes/FakeClock.h"

#include <gtest/gtest.h>

namespace mnemora::test {
namespace {

/// Remembers the texts that it is asked for.
struct ListeningModel : SentenceModel {
    std::vector<std::string> asked;
    std::optional<std::vector<double>> answer = std::vector<double>{0.5, -1.25};
    int length = 2;

    [[nodiscard]] int dimension() const override { return length; }
    [[nodiscard]] std::optional<std::vector<double>> vector(const std::string& text) override {
        asked.push_back(text);
        return answer;
    }
};

TEST(SentenceEmbedder, SaysOnceThatThereIsNoModel) {
    const ScopedFakeClock services;
    const CapturedStderr output;
    NLSentenceEmbedder embedder("en");
    EXPECT_FALSE(embedder.isAvailable());
    EXPECT_EQ(embedder.dimension(), 0);
    EXPECT_EQ(embedder.embed("text"), std::nullopt);
    EXPECT_EQ(output.text(), "[mnemora][error] NLEmbedding.sentenceEmbedding unavailable — "
                             "semantic search disabled\n");
}

TEST(SentenceEmbedder, EmbedsTheTrimmedStartOfAText) {
    const auto model = std::make_shared<ListeningModel>();
    std::string language;
    const ScopedCoreServices services(
        {.clock = std::make_shared<FakeClock>(), .sentenceModel = [&](const std::string& name) {
             language = name;
             return model;
         }});
    NLSentenceEmbedder embedder("en");
    EXPECT_EQ(language, "en");
    EXPECT_EQ(embedder.embed(" \n a b \u2003"), (std::vector<float>{0.5F, -1.25F}));
    std::string longText = "  ";
    for (int i = 0; i < 1300; ++i)
        longText += "e\u0301";
    (void)embedder.embed(longText);
    EXPECT_EQ(model->asked.front(), "a b");
    EXPECT_EQ(model->asked.back().size(), 1198U * 3);
    EXPECT_EQ(embedder.embed(" \n\t"), std::nullopt);
    EXPECT_EQ(model->asked.size(), 2U);
    model->answer.reset();
    EXPECT_EQ(embedder.embed("x"), std::nullopt);
    model->length = 0; // the weights turned out to be damaged
    EXPECT_FALSE(embedder.isAvailable());
}

} // namespace
} // namespace mnemora::test
