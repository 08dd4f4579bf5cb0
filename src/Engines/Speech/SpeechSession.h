#pragma once
// The child's side of the conversation: sound in, utterances out.

#include "Engines/Channel.h"
#include "Engines/Speech/Resampler.h"
#include "Engines/Speech/SherpaModels.h"
#include "Engines/Speech/UtteranceCutter.h"

#include <functional>
#include <map>

namespace mnemora::engines::speech {

/// Streams come into being with their first sound. Everything runs on the one thread that calls;
/// sound that comes while words are recognised waits in the socket and in the parent.
class SpeechSession {
  public:
    /// Sends a frame to the parent; false when it is gone.
    using Send = std::function<bool(FrameKind kind, const std::string& payload)>;

    SpeechSession(SpeechModels& models, Send send);

    /// False when the conversation is over: a frame that makes no sense, or a parent that is gone.
    [[nodiscard]] bool take(const Frame& frame);

  private:
    struct Stream {
        std::size_t detector; // its place among the models'
        Resampler resampler;
        UtteranceCutter cutter;
        bool wasSpeaking = false;
    };
    using Streams = std::map<StreamNumber, std::unique_ptr<Stream>>;

    bool takeSound(const Frame& frame);
    bool endSound(StreamNumber number);
    Stream* streamOf(StreamNumber number);
    [[nodiscard]] std::optional<std::size_t> freeDetector() const;
    void recognize(StreamNumber number, std::int64_t from, std::span<const float> sound);

    SpeechModels& models_;
    const Send send_;
    Streams streams_;
    std::vector<float> samples_; // of the piece at hand
    bool parentIsThere_ = true;
};

} // namespace mnemora::engines::speech
