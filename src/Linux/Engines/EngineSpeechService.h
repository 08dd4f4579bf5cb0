#pragma once
// The speech service of this desktop: one engine for all streams, English only.

#include "Linux/Engines/EngineSpeechPeer.h"

namespace mnemora {

class EngineSpeechService : public SpeechService {
  public:
    EngineSpeechService(SpeechEngineSettings settings, std::shared_ptr<MainLoop> mainLoop);

    /// Null for every language but English.
    [[nodiscard]] std::shared_ptr<SpeechRecognizer>
    recognizer(const std::string& localeIdentifier) override;
    /// Linux asks nobody, so the answer is yes. It comes from a worker thread that has read the
    /// model's files, so that recognisers know from then on whether they can work.
    void requestAuthorization(std::function<void(bool authorized)> answer) override;

    /// The engine's process while it runs. Any thread.
    [[nodiscard]] std::optional<pid_t> child() const { return peer_->child(); }

  private:
    const std::shared_ptr<MainLoop> mainLoop_;
    const std::shared_ptr<EngineSpeechPeer> peer_;
};

} // namespace mnemora
