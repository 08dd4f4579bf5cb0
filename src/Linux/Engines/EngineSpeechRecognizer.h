#pragma once
// The recogniser of one stream of sound: requests are views of what the engine hears in it.

#include "Linux/Engines/SpeechPeer.h"
#include "Platform/MainLoop.h"

#include <chrono>

namespace mnemora {

/// A request ends with its first final result, one utterance; what is spoken across its end
/// belongs to the next request, and an utterance that comes while none is open waits for it. After
/// endAudio() the final result holds everything that had still to be recognised, and may be empty.
/// A request that goes without any answer takes the sound of its stream with it.
///
/// Partial results carry no text: they only say that somebody began to speak. Errors come at most
/// once a second, since whoever gets one opens the next request at once.
class EngineSpeechRecognizer : public SpeechRecognizer {
  public:
    static constexpr std::chrono::seconds errorPause{1};

    EngineSpeechRecognizer(std::shared_ptr<SpeechPeer> peer, std::shared_ptr<MainLoop> mainLoop);
    ~EngineSpeechRecognizer() override;

    [[nodiscard]] bool isAvailable() const override;
    [[nodiscard]] bool supportsOnDeviceRecognition() const override;
    [[nodiscard]] std::unique_ptr<SpeechTask> recognize(const SpeechRequestOptions& options,
                                                        SpeechResultHandler handler) override;

  private:
    class Errors;
    struct Request;
    class Stream;
    class Task;

    const std::shared_ptr<SpeechPeer> peer_;
    const std::shared_ptr<MainLoop> mainLoop_;
    const std::shared_ptr<Errors> errors_;
    std::shared_ptr<Stream> stream_; // null before the first request and once its sound has ended
};

} // namespace mnemora
