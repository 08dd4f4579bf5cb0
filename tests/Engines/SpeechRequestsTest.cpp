// The rules of recognition requests, against an engine that a test scripts.

#include "Linux/Engines/EngineSpeechRecognizer.h"
#include "fakes/FakeDesktop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace mnemora {
namespace {

using namespace std::chrono_literals;
using engines::StreamNumber;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// Remembers what it is told in `calls`: "open 1", "sound 1", "end 1", "close 1".
struct ScriptedPeer : SpeechPeer {
    [[nodiscard]] bool isUsable() const override { return usable; }
    StreamNumber open(std::weak_ptr<SpeechListener> listener) override {
        listeners.push_back(std::move(listener));
        note("open", static_cast<StreamNumber>(listeners.size()));
        return static_cast<StreamNumber>(listeners.size());
    }
    void append(StreamNumber stream, const PcmBuffer&) override { note("sound", stream); }
    void endSound(StreamNumber stream) override { note("end", stream); }
    void close(StreamNumber stream) override { note("close", stream); }

    void note(const char* what, StreamNumber stream) {
        calls.push_back(what + (" " + std::to_string(stream)));
    }
    void say(StreamNumber stream, const std::string& text) {
        if (const auto listener = listeners.at(stream - 1).lock())
            listener->onUtterance({stream, 0, 1, text});
    }
    void fail(StreamNumber stream) {
        if (const auto listener = listeners.at(stream - 1).lock())
            listener->onFailure("it died");
    }
    void finishSound(StreamNumber stream) {
        if (const auto listener = listeners.at(stream - 1).lock())
            listener->onSoundEnded();
    }

    bool usable = true;
    std::vector<std::string> calls;
    std::vector<std::weak_ptr<SpeechListener>> listeners;
};

class SpeechRequestsTest : public ::testing::Test {
  protected:
    /// Opens a request whose answers go to `heard`; it goes with its final result or error, and
    /// then opens the next where `reopens` says so.
    void open() {
        auto task = recognizer->recognize(
            {.requiresOnDeviceRecognition = true, .shouldReportPartialResults = partial},
            [this](const auto& result, const auto& error) {
                if (result && !result->isFinal)
                    return heard.push_back("speaking");
                heard.push_back(error ? "error" : result->formattedString);
                if (reopens)
                    open();
                else
                    current.reset();
            });
        current = std::move(task);
    }

    std::shared_ptr<ScriptedPeer> peer = std::make_shared<ScriptedPeer>();
    std::shared_ptr<test::FakeMainLoop> loop = std::make_shared<test::FakeMainLoop>();
    std::shared_ptr<EngineSpeechRecognizer> recognizer =
        std::make_shared<EngineSpeechRecognizer>(peer, loop);
    std::unique_ptr<SpeechTask> current;
    std::vector<std::string> heard;
    bool reopens = true;
    bool partial = false;
    const PcmBuffer sound{.sampleRate = 16000, .channels = 1, .samples = {0}};
};

TEST_F(SpeechRequestsTest, EachRequestEndsWithItsFirstFinalAndAllShareOneStream) {
    open();
    current->append(sound);
    peer->say(1, "one");
    current->append(sound);
    peer->say(1, "two");
    peer->say(1, "three");
    EXPECT_THAT(heard, ElementsAre("one", "two", "three"));
    EXPECT_THAT(peer->calls, ElementsAre("open 1", "sound 1", "sound 1"));
}

TEST_F(SpeechRequestsTest, WhatIsSaidWhileNoRequestIsOpenWaitsForTheNext) {
    reopens = false;
    open();
    peer->say(1, "one");
    peer->say(1, "two");
    peer->say(1, "three");
    EXPECT_THAT(heard, ElementsAre("one"));
    reopens = true;
    open();
    EXPECT_THAT(heard, ElementsAre("one")) << "answered from inside the call";
    loop->runJobs();
    EXPECT_THAT(heard, ElementsAre("one", "two", "three"));
}

TEST_F(SpeechRequestsTest, ARequestTakesSoundAfterItsFinalForTheNext) {
    std::unique_ptr<SpeechTask> task;
    bool isAnswered = false;
    task = recognizer->recognize({}, [&](const auto&, const auto&) { isAnswered = true; });
    peer->say(1, "one");
    EXPECT_TRUE(isAnswered);
    task->append(sound); // as a sound thread does before the next request is there
    open();
    task.reset();
    peer->say(1, "two");
    EXPECT_THAT(heard, ElementsAre("two"));
    EXPECT_THAT(peer->calls, ElementsAre("open 1", "sound 1"));
}

TEST_F(SpeechRequestsTest, AfterTheEndOfSoundOneFinalHoldsTheRest) {
    reopens = false;
    open();
    current->endAudio();
    current->finish();
    current->append(sound);
    peer->say(1, "the last");
    peer->say(1, "words");
    EXPECT_THAT(heard, IsEmpty());
    peer->finishSound(1);
    EXPECT_THAT(heard, ElementsAre("the last words"));
    EXPECT_THAT(peer->calls, ElementsAre("open 1", "end 1", "close 1"))
        << "sound after the end is dropped, and the engine may go";

    open();
    current->endAudio();
    peer->finishSound(2);
    EXPECT_THAT(heard, ElementsAre("the last words", "")) << "nobody waits for ever";
    EXPECT_EQ(current, nullptr);
}

TEST_F(SpeechRequestsTest, AnAbandonedRequestTakesItsSoundWithIt) {
    open();
    current->append(sound);
    current.reset();
    EXPECT_THAT(peer->calls, ElementsAre("open 1", "sound 1", "close 1"));
    peer->say(1, "too late");
    open();
    loop->runJobs();
    peer->say(2, "fresh");
    EXPECT_THAT(heard, ElementsAre("fresh"));
}

TEST_F(SpeechRequestsTest, StreamsAreClosedWhenTheirOwnerGoes) {
    reopens = false;
    open();
    peer->say(1, "one");
    recognizer.reset();
    EXPECT_THAT(peer->calls, ElementsAre("open 1", "close 1"));
}

TEST_F(SpeechRequestsTest, ErrorsComeAtMostOnceASecondAndTheStreamGoesOn) {
    open();
    peer->fail(1);
    EXPECT_THAT(heard, ElementsAre("error"));
    for (int i = 0; i < 5; ++i)
        peer->fail(1);
    loop->advance(999ms);
    EXPECT_THAT(heard, ElementsAre("error"));
    loop->advance(1ms);
    EXPECT_THAT(heard, ElementsAre("error", "error"));
    loop->advance(10s);
    EXPECT_THAT(heard, ElementsAre("error", "error")) << "a failure told twice";
    peer->say(1, "back again");
    peer->fail(1);
    EXPECT_THAT(heard, ElementsAre("error", "error", "back again", "error"));
}

TEST_F(SpeechRequestsTest, AFailureAfterTheEndOfSoundStillAnswers) {
    reopens = false;
    open();
    current->endAudio();
    peer->say(1, "saved");
    peer->fail(1);
    open();
    current->endAudio();
    peer->fail(2);
    EXPECT_THAT(heard, ElementsAre("saved", "error"));
}

TEST_F(SpeechRequestsTest, TellsOfSpeakingOnlyWhoAsksForPartialResults) {
    open();
    peer->listeners[0].lock()->onSpeaking();
    EXPECT_THAT(heard, IsEmpty());
    partial = true;
    peer->say(1, "one");
    peer->listeners[0].lock()->onSpeaking();
    EXPECT_THAT(heard, ElementsAre("one", "speaking"));
}

TEST_F(SpeechRequestsTest, IsAvailableWhenTheEngineIsUsable) {
    EXPECT_TRUE(recognizer->isAvailable());
    EXPECT_TRUE(recognizer->supportsOnDeviceRecognition());
    peer->usable = false;
    EXPECT_FALSE(recognizer->isAvailable());
}

} // namespace
} // namespace mnemora
