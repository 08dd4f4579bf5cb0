#include "Linux/Embedding/WordPieceTokenizer.h"

#include "Embedding/Golden.h"
#include "Support/Installation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace mnemora::embedding {
namespace {

using ::testing::ElementsAre;
using Json = nlohmann::json;
using Words = std::vector<std::string>;

Json addedToken(int id, const char* content) {
    return {{"id", id},        {"content", content},  {"single_word", false}, {"lstrip", false},
            {"rstrip", false}, {"normalized", false}, {"special", true}};
}

Json smallTokenizer() {
    Json document;
    document["added_tokens"] = {addedToken(1, "[CLS]"), addedToken(2, "[SEP]"),
                                addedToken(9, "[SEP]s")};
    document["normalizer"] = {{"type", "BertNormalizer"},
                              {"clean_text", true},
                              {"handle_chinese_chars", true},
                              {"strip_accents", nullptr},
                              {"lowercase", true}};
    document["pre_tokenizer"] = {{"type", "BertPreTokenizer"}};
    document["post_processor"] = {{"type", "TemplateProcessing"},
                                  {"single",
                                   {{{"SpecialToken", {{"id", "[CLS]"}, {"type_id", 0}}}},
                                    {{"Sequence", {{"id", "A"}, {"type_id", 0}}}},
                                    {{"SpecialToken", {{"id", "[SEP]"}, {"type_id", 0}}}}}}};
    document["model"] = {{"type", "WordPiece"},
                         {"unk_token", "[UNK]"},
                         {"continuing_subword_prefix", "##"},
                         {"max_input_chars_per_word", 9},
                         {"vocab",
                          {{"[PAD]", 0},
                           {"[CLS]", 1},
                           {"[SEP]", 2},
                           {"[UNK]", 3},
                           {"un", 4},
                           {"##aff", 5},
                           {"##able", 6},
                           {"##a", 7},
                           {"é", 8}}}};
    return document;
}

TEST(WordPieceTokenizerTest, GivesThePublishersTokens) {
    const auto json = test::contentOf(installation::data() / "models/embedding/tokenizer.json");
    const auto tokenizer = WordPieceTokenizer::create(json);
    ASSERT_TRUE(tokenizer);
    const auto cases = test::goldenCases();
    ASSERT_GE(cases.size(), 20U);
    for (const auto& golden : cases)
        EXPECT_EQ(tokenizer->encode(golden.text, 256), golden.ids) << golden.text;
}

TEST(WordPieceTokenizerTest, TakesTheLongestPiecesAndTheUnknownTokenForTheRest) {
    const auto tokenizer = WordPieceTokenizer::create(smallTokenizer().dump());
    ASSERT_TRUE(tokenizer);
    EXPECT_EQ(tokenizer->vocabularySize(), 10);
    EXPECT_THAT(tokenizer->encode("Unaffable una", 99), ElementsAre(1, 4, 5, 6, 4, 7, 2));
    // No piece for the end, a word of ten characters, a piece that can't begin a word.
    EXPECT_THAT(tokenizer->encode("unx unaaaaaaaa able", 99), ElementsAre(1, 3, 3, 3, 2));
    EXPECT_THAT(tokenizer->encode("unaaaaaaa", 99), ElementsAre(1, 4, 7, 7, 7, 7, 7, 7, 7, 2));
    EXPECT_THAT(tokenizer->encode("un[SEP]un[SEP]sun", 99), ElementsAre(1, 4, 2, 4, 9, 4, 2));
    EXPECT_THAT(tokenizer->encode("un un un", 4), ElementsAre(1, 4, 4, 2));
    EXPECT_THAT(tokenizer->encode("unaffable", 3), ElementsAre(1, 4, 2));
    EXPECT_THAT(tokenizer->encode("un", 0), ElementsAre(1, 2));
    EXPECT_THAT(tokenizer->encode("\xff un\xc3 \xed\xa0\x80", 99), ElementsAre(1, 4, 2));
}

TEST(WordPieceTokenizerTest, FollowsTheNormalizationThatTheModelAsksFor) {
    auto document = smallTokenizer();
    document["normalizer"]["strip_accents"] = false;
    document["normalizer"]["lowercase"] = true;
    EXPECT_THAT(WordPieceTokenizer::create(document.dump())->encode("É", 9), ElementsAre(1, 8, 2));
    const BertNormalization none{false, false, false, false};
    EXPECT_EQ(bertWords("Né 漢字\x01x", none), (Words{"Né", "漢字\x01x"}));
    EXPECT_EQ(bertWords("Né 漢字\x01x", {}), (Words{"ne", "漢", "字", "x"}));
    EXPECT_EQ(bertWords("İ", {true, true, false, true}), Words{"i̇"});
    EXPECT_EQ(bertWords("a$b—c\u3000d", {}), (Words{"a", "$", "b", "—", "c", "d"}));
}

TEST(WordPieceTokenizerTest, RefusesAnythingButItsOwnKindOfFile) {
    const auto good = smallTokenizer().dump();
    for (std::size_t size = 0; size < good.size(); ++size)
        EXPECT_FALSE(WordPieceTokenizer::create(good.substr(0, size))) << size;
    EXPECT_FALSE(WordPieceTokenizer::create(std::string(100'000, '[')));

    const std::vector<std::pair<const char*, Json>> changes = {
        {"/normalizer/type", "NFC"},
        {"/normalizer/lowercase", 1},
        {"/pre_tokenizer/type", "Whitespace"},
        {"/model/type", "BPE"},
        {"/model/vocab", {1, 2}},
        {"/model/vocab/un", -1},
        {"/model/vocab/un", 1e30},
        {"/model/vocab/un", 4'000'000'000'000},
        {"/model/unk_token", "[NONE]"},
        {"/model/max_input_chars_per_word", -5},
        {"/added_tokens/0/id", "1"},
        {"/added_tokens/0/content", ""},
        {"/added_tokens/0/lstrip", true},
        {"/post_processor/single", Json::array()},
        {"/post_processor/single/0/SpecialToken/id", "[NONE]"},
        {"/padding", {{"pad_id", 10}}}};
    for (const auto& [where, value] : changes) {
        auto document = smallTokenizer();
        document[Json::json_pointer(where)] = value;
        EXPECT_FALSE(WordPieceTokenizer::create(document.dump())) << where << " " << value;
    }
    const auto whole = smallTokenizer();
    for (const auto& [member, value] : whole.items()) {
        auto document = whole;
        document.erase(member);
        EXPECT_FALSE(WordPieceTokenizer::create(document.dump())) << member;
    }
}

} // namespace
} // namespace mnemora::embedding
