#include "Meetings/SpeechStream.h"
#include "Platform/DesktopServices.h"
#include "fakes/FakeSpeech.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>

namespace mnemora::test {
namespace {

using Texts = std::vector<std::string>;
using Calls = std::vector<std::string>;

class SpeechStreamTest : public testing::Test {
  protected:
    void make() {
        stream = std::make_shared<SpeechStream>(
            "You", "en-US", [this](const std::string& label, const std::string& text) {
                segments.push_back(label + ": " + text);
            });
    }
    FakeSpeechRecognizer& recognizer() { return *speech->recognizers.at(0); }
    /// Appends one buffer, known by its sample rate.
    void append(double mark) { stream->append({.sampleRate = mark, .channels = 1, .samples = {}}); }

    std::shared_ptr<FakeSpeechService> speech = std::make_shared<FakeSpeechService>();
    ScopedDesktopServices installed{{.speech = speech}};
    std::shared_ptr<SpeechStream> stream;
    Texts segments;
};

TEST_F(SpeechStreamTest, AnswersHandOutSegmentsAndReopenByTheTable) {
    struct Case {
        const char* name;
        std::optional<SpeechResult> result;
        std::optional<std::string> error;
        Texts segments;
        bool reopens;
    };
    const auto final = [](const char* text) { return SpeechResult{text, true}; };
    const std::vector<Case> cases = {
        {"partial", SpeechResult{"hello", false}, {}, {}, false},
        {"neither", {}, {}, {}, false},
        {"final", final("Hello there."), {}, {"You: Hello there."}, true},
        {"final, padded", final(" \tA\u00A0b \u2003\n"), {}, {"You: A\u00A0b"}, true},
        {"final, blank", final(" \n\u3000 "), {}, {}, true},
        {"final with an error", final("Yes."), "late", {"You: Yes."}, true},
        {"error", {}, "lost", {}, true},
        {"partial with an error", SpeechResult{"hel", false}, "lost", {}, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        speech->recognizers.clear();
        segments.clear();
        make();
        stream->start();
        for (size_t turn = 1; turn <= 2; ++turn) { // the second answer counts like the first
            recognizer().last().answer(c.result, c.error);
            EXPECT_EQ(recognizer().requests.size(), c.reopens ? turn + 1 : 1);
            EXPECT_EQ(recognizer().openRequests(), 1);
        }
        Texts twice = c.segments;
        twice.insert(twice.end(), c.segments.begin(), c.segments.end());
        EXPECT_EQ(segments, twice);
        for (const auto& request : recognizer().requests) {
            EXPECT_TRUE(request->options.requiresOnDeviceRecognition);
            EXPECT_TRUE(request->options.shouldReportPartialResults);
            EXPECT_EQ(request->calls, Calls{}); // a replaced request is only let go
        }
    }
}

TEST_F(SpeechStreamTest, StaysIdleWithoutAUsableRecogniser) {
    for (const int missing : {0, 1, 2, 3}) {
        SCOPED_TRACE(missing);
        *speech = {};
        speech->knowsLocale = missing != 0;
        speech->pattern.available = missing != 1;
        speech->pattern.onDevice = missing != 2;
        const ScopedDesktopServices services(missing == 3 ? DesktopServices{}
                                                          : DesktopServices{.speech = speech});
        make();
        stream->start();
        append(1);
        stream->stop();
        for (const auto& made : speech->recognizers)
            EXPECT_TRUE(made->requests.empty());
    }
    EXPECT_EQ(speech->locales, Texts{}); // the last round had no service to ask
}

TEST_F(SpeechStreamTest, FeedsTheOpenRequestOnly) {
    make();
    EXPECT_EQ(speech->locales, Texts{"en-US"});
    stream->stop(); // never started
    append(1);
    stream->start();
    stream->start();
    append(2);
    append(3);
    recognizer().last().finalText("One.");
    append(4);
    stream->stop();
    append(5);
    ASSERT_EQ(recognizer().requests.size(), 2U);
    EXPECT_EQ(recognizer().requests[0]->buffers, (std::vector<double>{2, 3}));
    EXPECT_EQ(recognizer().requests[1]->buffers, std::vector<double>{4});
    EXPECT_EQ(recognizer().requests[1]->calls, (Calls{"endAudio", "finish"}));
}

TEST_F(SpeechStreamTest, AStoppedStreamHandsOutItsLastWordsAndOpensNothing) {
    make();
    stream->start();
    stream->stop();
    stream->stop();
    EXPECT_EQ(recognizer().last().calls, (Calls{"endAudio", "finish"}));
    recognizer().last().finalText("The end.");
    EXPECT_EQ(segments, Texts{"You: The end."});
    EXPECT_EQ(recognizer().requests.size(), 1U);
    EXPECT_EQ(recognizer().openRequests(), 0);

    stream->start();
    stream->stop();
    recognizer().last().answer({}, "cancelled");
    EXPECT_EQ(recognizer().requests.size(), 2U);
    stream->start();
    append(1);
    EXPECT_EQ(recognizer().last().buffers, std::vector<double>{1});
}

TEST_F(SpeechStreamTest, ResultsAfterTheOwnerLetGoAreIgnored) {
    make();
    stream->start();
    const auto request = recognizer().requests.at(0);
    stream.reset();
    EXPECT_FALSE(request->open);
    request->finalText("Too late.");
    EXPECT_EQ(segments, Texts{});
    EXPECT_EQ(recognizer().requests.size(), 1U);
}

TEST_F(SpeechStreamTest, NoBufferIsLostWhileRequestsChange) {
    make();
    stream->start();
    constexpr int count = 20'000;
    std::atomic<bool> done = false;
    std::thread sound([&] {
        for (int i = 0; i < count; ++i)
            append(i);
        done = true;
    });
    while (!done)
        recognizer().last().finalText("Word.");
    sound.join();
    std::vector<double> heard;
    for (const auto& request : recognizer().requests)
        heard.insert(heard.end(), request->buffers.begin(), request->buffers.end());
    ASSERT_EQ(heard.size(), static_cast<size_t>(count));
    for (int i = 0; i < count; ++i)
        ASSERT_EQ(heard[static_cast<size_t>(i)], i);
}

} // namespace
} // namespace mnemora::test
