#pragma once
// Recorded sound through the program's own way to words, for tools, tests and benchmarks. Needs
// the toolkit's application object; everything on the main thread.

#include "Engines/SpeechFrames.h"
#include "Linux/Desktop/QtMainLoop.h"
#include "Linux/Engines/EngineSpeechService.h"
#include "Platform/DesktopServices.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace mnemora {

/// Reads a sound file whole, in any format of libsndfile; absent when it is none.
[[nodiscard]] std::optional<PcmBuffer> readSoundFile(const std::string& path);

/// One segment of a transcript.
struct HeardSegment {
    double start = 0; // seconds into the sound, as the engine cut it
    double end = 0;
    std::string text;
    /// When it was handed out, in seconds since the first sound was.
    double heardAt = 0;
};

class FileTranscriber {
  public:
    enum class Pace { realTime, fast };

    /// Installs the speech service as the process's own for as long as this lives.
    explicit FileTranscriber(
        SpeechEngineSettings settings = SpeechEngineSettings::ofInstallation());

    using SegmentHandler = std::function<void(const HeardSegment&)>;

    /// Feeds the sound to a SpeechStream in buffers as a microphone's and tells of each segment as
    /// it comes. False when there is no recogniser or it failed.
    [[nodiscard]] bool transcribe(const PcmBuffer& sound, Pace pace,
                                  const SegmentHandler& onSegment);

    /// What was said on each side of a call.
    struct BothSides {
        std::vector<HeardSegment> you;
        std::vector<HeardSegment> them;
    };
    /// Feeds both sides of a call at once, as fast as can be: sound of one length, rate and number
    /// of channels. Absent when there is no recogniser or it failed.
    [[nodiscard]] std::optional<BothSides> transcribeCall(const PcmBuffer& you,
                                                          const PcmBuffer& them);

    /// Runs the main loop until the condition holds; false when that takes longer than `bound`.
    [[nodiscard]] static bool waitUntil(const std::function<bool()>& condition,
                                        std::chrono::milliseconds bound);

    [[nodiscard]] EngineSpeechService& service() { return *service_; }

  private:
    using Time = std::chrono::steady_clock::time_point;

    static void feed(const PcmBuffer& sound, Pace pace, class SpeechStream& stream);
    /// Returns once everything that was handed to the engine before has been recognised.
    [[nodiscard]] bool awaitEngine();

    std::shared_ptr<desktop::QtMainLoop> loop_;
    std::shared_ptr<EngineSpeechService> service_;
    std::optional<ScopedDesktopServices> installed_;
    engines::Utterance last_;
};

} // namespace mnemora
