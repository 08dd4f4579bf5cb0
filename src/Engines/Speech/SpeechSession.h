#pragma once
// The child's side of the conversation: sound in, utterances out.

#include "Engines/Channel.h"
#include "Engines/Speech/EchoCanceller.h"
#include "Engines/Speech/Resampler.h"
#include "Engines/Speech/SherpaModels.h"
#include "Engines/Speech/SoundMarks.h"
#include "Engines/Speech/UtteranceCutter.h"

#include <functional>
#include <map>

namespace mnemora::engines::speech {

/// What a microphone hears of the loudspeakers isn't said by anybody there: its utterances are
/// compared with the words in what was played at that time. The sound of both sides arrives in the
/// order in which it was captured, which tells what was at one time.
///
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
        SoundOrigin origin = SoundOrigin::unknown; // of the last piece
        SoundMarks marks = {};
        std::unique_ptr<EchoCanceller> canceller = nullptr; // of a microphone near loudspeakers
        bool wasSpeaking = false;
    };
    using Streams = std::map<StreamNumber, std::unique_ptr<Stream>>;

    bool takeSound(const Frame& frame);
    void cancelEcho(Stream& stream, std::vector<float>& sound);
    bool endSound(StreamNumber number);
    Stream* streamOf(StreamNumber number);
    [[nodiscard]] std::optional<std::size_t> freeDetector() const;
    void recognize(StreamNumber number, std::int64_t from, std::span<const float> sound);
    [[nodiscard]] std::string playedMeanwhile(const Stream& microphone, std::int64_t from,
                                              std::int64_t to) const;

    SpeechModels& models_;
    const Send send_;
    Streams streams_;
    std::uint64_t pieces_ = 0;   // of all streams
    std::vector<float> samples_; // of the piece at hand
    bool parentIsThere_ = true;
};

} // namespace mnemora::engines::speech
