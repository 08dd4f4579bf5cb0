#include "Linux/Engines/EngineSpeechService.h"

#include "Linux/Engines/EngineSpeechRecognizer.h"

namespace mnemora {

EngineSpeechService::EngineSpeechService(SpeechEngineSettings settings,
                                         std::shared_ptr<MainLoop> mainLoop)
    : mainLoop_(std::move(mainLoop)),
      peer_(std::make_shared<EngineSpeechPeer>(std::move(settings), mainLoop_)) {}

std::shared_ptr<SpeechRecognizer>
EngineSpeechService::recognizer(const std::string& localeIdentifier) {
    const auto language = localeIdentifier.substr(0, localeIdentifier.find_first_of("-_.@"));
    if (language != "en")
        return nullptr;
    return std::make_shared<EngineSpeechRecognizer>(peer_, mainLoop_);
}

void EngineSpeechService::requestAuthorization(std::function<void(bool authorized)> answer) {
    mainLoop_->background([peer = peer_, answer = std::move(answer)] {
        peer->checkModel();
        answer(true);
    });
}

} // namespace mnemora
