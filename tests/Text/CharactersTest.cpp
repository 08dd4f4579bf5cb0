#include "Text/Characters.h"
#include "Text/Encoding.h"

#include <gtest/gtest.h>
#include <vector>

namespace mnemora {
namespace {

std::vector<std::string> characters(std::string_view text) {
    std::vector<std::string> list;
    forEachCharacter(text, [&](std::string_view c) {
        list.emplace_back(c);
        return true;
    });
    return list;
}

TEST(Characters, AreWhatAReaderPerceives) {
    using List = std::vector<std::string>;
    const std::vector<List> cases = {
        {},
        {"a"},
        {"a", "b", "\r\n", "c", "\r", "\r\n", "\n"},
        {"e\u0301", "x"},
        {"a", "e\u0301", "\r\n", "b"},
        {"\u4E2D", "\u6587", "!", "!"},
        {"1", "👩‍👩‍👧", "2", "3"},
        {"🇩🇪", "🇫🇷", "x", "🇯🇵"},
        {"👍🏽", "\r\n", "z"},
        {"\u0301", "a"},
        {"क्षि", "a", "b"},
    };
    for (const List& expected : cases) {
        std::string text;
        for (const auto& c : expected)
            text += c;
        EXPECT_EQ(characters(text), expected) << text;
    }
}

TEST(Characters, FirstOnesAreCutBetweenCharacters) {
    EXPECT_EQ(firstCharacters("abc", 2), "ab");
    EXPECT_EQ(firstCharacters("abc", 5), "abc");
    EXPECT_EQ(firstCharacters("abc", 0), "");
    EXPECT_EQ(firstCharacters("abc", -1), "");
    EXPECT_EQ(firstCharacters("\r\nab", 2), "\r\na");
    EXPECT_EQ(firstCharacters("👩‍👩‍👧e\u0301z", 2), "👩‍👩‍👧e\u0301");
}

TEST(Characters, SurviveIllFormedText) {
    for (const std::string text : {"\xFF", "a\xC3", "\xE2\x82", "x\xED\xA0\x80y", "\x80\x80\x80"}) {
        std::string joined;
        for (const auto& c : characters(text))
            joined += c;
        EXPECT_EQ(joined, text);
        EXPECT_EQ(trimmed(text), text);
        (void)lowercased(text);
        (void)normalized(text);
    }
}

TEST(Trimming, TakesUnicodeWhiteSpaceFromBothEnds) {
    EXPECT_EQ(trimmed(" \t\r\n\u00A0\u3000é b\u2028\n "), "é b");
    EXPECT_EQ(trimmed(" \n\u2003"), "");
    EXPECT_EQ(trimmed(""), "");
    EXPECT_EQ(trimmed("\u200B"), "\u200B"); // a zero-width space is none
}

TEST(LowerCase, IsUnicodesFullMapping) {
    EXPECT_EQ(lowercased("COM.LastPass"), "com.lastpass");
    EXPECT_EQ(lowercased("ÀÉ ΣΑΣ"), "àé σας");
    EXPECT_EQ(lowercased("İ"), "i\u0307");
}

TEST(NormalForm, MakesEquivalentTextsEqual) {
    EXPECT_EQ(normalized("cafe\u0301"), normalized("café"));
    EXPECT_EQ(normalized("\uAC00"), normalized("\u1100\u1161"));
    EXPECT_NE(normalized("①"), normalized("1")); // compatible, not equivalent
}

TEST(Encoding, RepairsIllFormedSequences) {
    EXPECT_EQ(repairedUtf8("a\xFFz"), "a\uFFFDz");
    EXPECT_EQ(repairedUtf8("\xE2\x82z"), "\uFFFDz");
    EXPECT_EQ(repairedUtf8("é\xC3"), "é\uFFFD");
    EXPECT_EQ(repairedUtf8("\xF0\x9F\x98\x80"), "😀");
    const std::string withNul("a\0b\xFF", 4);
    EXPECT_EQ(repairedUtf8(withNul), std::string("a\0b\uFFFD", 6));
    EXPECT_EQ(cleanText(withNul), "ab\uFFFD");
}

} // namespace
} // namespace mnemora
