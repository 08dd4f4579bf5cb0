#pragma once
// A desktop with a microphone, a loudspeaker, recognisers and cards, and a store to record into.

#include "Store/StoreFixture.h"
#include "fakes/CapturedStderr.h"
#include "fakes/FakeDesktop.h"
#include "fakes/FakeSound.h"
#include "fakes/FakeSpeech.h"

namespace mnemora::test {

struct WatchedWorkspace : FakeWorkspace {
    std::function<void(const std::optional<RunningApplication>&)> activated;

    std::unique_ptr<Observation> observeActivation(
        std::function<void(const std::optional<RunningApplication>&)> handler) override {
        activated = std::move(handler);
        return std::make_unique<Observation>();
    }
};

/// Remembers every card and which of them are on screen.
struct FakePanels : Panels {
    std::vector<Card> cards;
    std::shared_ptr<int> onScreen = std::make_shared<int>(0);

    std::unique_ptr<Panel> show(Card card) override {
        struct Shown : Panel {
            explicit Shown(std::shared_ptr<int> count) : onScreen(std::move(count)) { ++*onScreen; }
            Shown(const Shown&) = delete;
            Shown& operator=(const Shown&) = delete;
            ~Shown() override { --*onScreen; }
            std::shared_ptr<int> onScreen;
        };
        cards.push_back(std::move(card));
        return std::make_unique<Shown>(onScreen);
    }
    /// Presses a button of the last card.
    void press(const std::string& title) const {
        for (const auto& button : cards.back().buttons)
            if (button.title == title)
                return button.pressed();
        FAIL() << "no button " << title;
    }
};

class MeetingTest : public StoreTest {
  protected:
    static std::vector<std::string> segments(const std::string& columns = "person, body") {
        return outside("SELECT " + columns + " FROM events ORDER BY id;");
    }
    /// The recogniser of a side says an utterance.
    void youSay(const std::string& text) { recognizer(2).last().finalText(text); }
    void theySay(const std::string& text) { recognizer(1).last().finalText(text); }
    /// The recogniser made as the given one from the end.
    FakeSpeechRecognizer& recognizer(size_t fromEnd) {
        return *speech->recognizers.at(speech->recognizers.size() - fromEnd);
    }

    std::shared_ptr<FakeMainLoop> loop = std::make_shared<FakeMainLoop>();
    std::shared_ptr<WatchedWorkspace> workspace = std::make_shared<WatchedWorkspace>();
    std::shared_ptr<FakeAudioInput> input = std::make_shared<FakeAudioInput>();
    std::shared_ptr<FakeSystemAudio> system = std::make_shared<FakeSystemAudio>();
    std::shared_ptr<FakeSpeechService> speech = std::make_shared<FakeSpeechService>();
    std::shared_ptr<FakePanels> panels = std::make_shared<FakePanels>();
    ScopedDesktopServices installed{{.mainLoop = loop,
                                     .workspace = workspace,
                                     .audioInput = input,
                                     .systemAudio = system,
                                     .speech = speech,
                                     .panels = panels}};
};

} // namespace mnemora::test
