#include "Linux/Browsers/MessageFrames.h"
#include "Linux/Browsers/PageMessages.h"

#include <gtest/gtest.h>
#include <vector>

using namespace mnemora::browsers;

namespace {

std::vector<std::string> messagesIn(FrameReader& reader) {
    std::vector<std::string> messages;
    while (auto message = reader.next())
        messages.push_back(std::move(*message));
    return messages;
}

TEST(MessageFrames, ComeOutWholeHoweverTheyAreSplit) {
    const std::vector<std::string> sent{"{}", std::string(100, 'x'), "\"\n\""};
    std::string stream;
    for (const auto& message : sent)
        stream += framed(message);
    for (std::size_t piece = 1; piece <= stream.size(); ++piece) {
        FrameReader reader(100);
        std::vector<std::string> heard;
        for (std::size_t at = 0; at < stream.size(); at += piece) {
            reader.append(std::string_view(stream).substr(at, piece));
            for (auto& message : messagesIn(reader))
                heard.push_back(std::move(message));
        }
        EXPECT_EQ(heard, sent) << "in pieces of " << piece;
        EXPECT_FALSE(reader.bad());
    }
}

TEST(MessageFrames, EndTheStreamAtALengthThatCantBe) {
    for (const auto& garbage : {std::string(4, '\0'), std::string(4, '\xff'),
                                framed(std::string(101, 'x')), std::string("GET / HTTP/1.1\r\n")}) {
        FrameReader reader(100);
        reader.append(framed("{}") + garbage + framed("{}"));
        EXPECT_EQ(messagesIn(reader), std::vector<std::string>{"{}"});
        EXPECT_TRUE(reader.bad());
        reader.append(framed("{}"));
        EXPECT_FALSE(reader.next());
    }
}

TEST(PageMessages, TakeOnlyWhatTheyAreMadeOf) {
    for (const char* garbage :
         {"", "null", "[]", "{}", "{\"hello\":{}}", "{\"hello\":{\"browser\":1}}", "{\"state\":1}",
          "{\"id\":-1}", "{\"id\":\"1\"}", "{\"id\":1e300}", "{\"id\":1", "\xff",
          "{\"a\":\"\xc3\"}"})
        EXPECT_FALSE(parsePageMessage(garbage)) << garbage;
    EXPECT_FALSE(parsePageMessage(std::string(1 << 20, '[')));
}

TEST(PageMessages, TakeNothingOfAnAnswerThatIsNoneOrLies) {
    for (const char* text : {R"({"id":7})", R"({"id":7,"text":"x"})", R"({"id":7,"address":null})",
                             R"({"id":7,"refused":"no","address":"a","text":"x"})"}) {
        const auto message = parsePageMessage(text);
        ASSERT_TRUE(message) << text;
        const auto& answer = std::get<PageAnswer>(*message);
        EXPECT_EQ(answer.request, 7U);
        EXPECT_TRUE(answer.refused);
        EXPECT_FALSE(answer.address || answer.text) << text;
    }
}

TEST(PageMessages, KeepATextExactButForNul) {
    const auto message = parsePageMessage(
        R"({"id":1,"address":"about:blank","titles":["A",2,"B"],"text":" a\u0000b\u0001\n\ud83d\ude00"})");
    ASSERT_TRUE(message);
    const auto& answer = std::get<PageAnswer>(*message);
    EXPECT_EQ(answer.text, " ab\x01\n\U0001F600");
    EXPECT_EQ(answer.titles, (std::vector<std::string>{"A", "B"}));
}

} // namespace
