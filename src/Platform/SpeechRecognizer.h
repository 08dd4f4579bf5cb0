#pragma once
// Speech recognition on the device.

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace mnemora {

/// Where sound comes from, as far as its adapter knows. What loudspeakers play may come back
/// through a microphone; what headphones play is `unknown`, since nobody else hears it.
enum class SoundOrigin { unknown, microphone, loudspeakers };

/// A stretch of sound: interleaved samples of `channels` channels, full scale at -1 and 1.
struct PcmBuffer {
    double sampleRate = 0;
    int channels = 0;
    std::vector<float> samples;
    SoundOrigin origin = SoundOrigin::unknown;

    [[nodiscard]] std::size_t frames() const {
        return channels > 0 ? samples.size() / static_cast<std::size_t>(channels) : 0;
    }
};

/// What the recogniser heard so far in one request.
struct SpeechResult {
    /// Best transcription, with the recogniser's punctuation and capitals.
    std::string formattedString;
    /// True for the last result of a request; partial results may change.
    bool isFinal = false;

    bool operator==(const SpeechResult&) const = default;
};

/// Called on the main thread any number of times with an optional result and an optional error
/// (its description).
using SpeechResultHandler =
    std::function<void(const std::optional<SpeechResult>&, const std::optional<std::string>&)>;

/// What a request asks for.
struct SpeechRequestOptions {
    bool requiresOnDeviceRecognition = false;
    bool shouldReportPartialResults = false;
};

/// One open recognition request with its running task. Destroying it abandons what it had not
/// finalised: no handler call follows. It may be destroyed inside its own handler, and after the
/// next request of its recogniser was opened.
struct SpeechTask {
    virtual ~SpeechTask() = default;

    /// Takes a copy of the buffer; never waits and never fails. Any thread.
    virtual void append(const PcmBuffer& buffer) = 0;
    /// No more sound will come. Main thread.
    virtual void endAudio() = 0;
    /// Lets the recogniser complete the sound that it has. Main thread.
    virtual void finish() = 0;
};

/// A recogniser for one language and one stream of sound: what was appended to one request and
/// not yet spoken to its end belongs to the next. Main thread.
struct SpeechRecognizer {
    virtual ~SpeechRecognizer() = default;

    [[nodiscard]] virtual bool isAvailable() const = 0;
    [[nodiscard]] virtual bool supportsOnDeviceRecognition() const = 0;
    /// Opens a request. `handler` is called on the main thread, never from inside this call.
    [[nodiscard]] virtual std::unique_ptr<SpeechTask> recognize(const SpeechRequestOptions& options,
                                                                SpeechResultHandler handler) = 0;
};

/// Makes recognisers and asks for the permission to use them.
struct SpeechService {
    virtual ~SpeechService() = default;

    /// A recogniser for a locale ("en-US"); null when the platform has none. Main thread.
    [[nodiscard]] virtual std::shared_ptr<SpeechRecognizer>
    recognizer(const std::string& localeIdentifier) = 0;
    /// Asks whether speech may be recognised; answers once, on any thread.
    virtual void requestAuthorization(std::function<void(bool authorized)> answer) = 0;
};

} // namespace mnemora
