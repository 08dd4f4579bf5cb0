#pragma once
// Text recognition in a child process. It is started when the first picture comes and ended when
// none has come for some minutes, so that its memory really returns; when it dies, the picture at
// hand has no text and the next one starts it again.

#include "Engines/Channel.h"
#include "Engines/Recognition/PixelDigest.h"
#include "Linux/Engines/EngineProcess.h"
#include "Platform/TextRecognizer.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace mnemora {

/// How an EngineTextRecognizer runs its child. The times suit the program; tests shorten them.
struct EngineSettings {
    std::filesystem::path program;
    std::filesystem::path model;
    /// The child ends after this long without a picture.
    std::chrono::milliseconds idle = std::chrono::minutes(5);
    /// A caller waits no longer than this; the picture has no text then.
    std::chrono::milliseconds patience = std::chrono::minutes(1);
    /// A child that hasn't answered after this long is ended. In the idle scheduling class a
    /// picture may take minutes on a machine that is busy throughout.
    std::chrono::milliseconds stuck = std::chrono::minutes(5);
    /// The pause after the second failure in a row, doubled with each further one up to `maxPause`.
    std::chrono::milliseconds pause = std::chrono::seconds(30);
    std::chrono::milliseconds maxPause = std::chrono::minutes(10);

    /// The child and the model of this installation.
    [[nodiscard]] static EngineSettings ofInstallation();
};

/// One picture is recognised, one waits; a picture beyond that has no lines. A picture that is
/// the same as the last one answered, pixel by pixel, is answered without the child.
class EngineTextRecognizer final : public TextRecognizer {
  public:
    explicit EngineTextRecognizer(EngineSettings settings);
    /// Ends the child; callers that wait get no lines.
    ~EngineTextRecognizer() override;
    EngineTextRecognizer(const EngineTextRecognizer&) = delete;
    EngineTextRecognizer& operator=(const EngineTextRecognizer&) = delete;

    std::vector<RecognizedLine> recognize(const Image& image) override;

    /// Whether a picture handed over now would be recognised. Any thread, at once.
    [[nodiscard]] bool hasRoom() const;

    /// The child's process while it runs. Any thread.
    [[nodiscard]] std::optional<pid_t> child() const;

  private:
    using Lines = std::vector<RecognizedLine>;
    using Digest = recognition::PixelDigest;
    using Time = std::chrono::steady_clock::time_point;

    struct Job {
        Image image;
        Digest digest;
        Lines lines{};
        bool done = false;
    };

    struct Answer {
        Digest digest;
        Lines lines;
    };

    void run();
    std::shared_ptr<Job> nextJob();
    void finish(const std::shared_ptr<Job>& job, std::optional<Lines> lines);
    std::optional<Lines> answerFor(const Job& job);
    std::optional<Lines> ask(const Job& job);
    bool startChild();
    void endChild();
    void noteFailure();
    void report(const std::string& reason);

    const EngineSettings settings_;
    mutable std::mutex mutex_;
    std::condition_variable arrived_;
    std::condition_variable finished_;
    std::deque<std::shared_ptr<Job>> jobs_; // guarded by mutex_; the first is being recognised
    std::optional<Answer> last_;            // guarded by mutex_
    std::optional<engines::EngineProcess> child_; // written by the thread under mutex_
    bool ending_ = false;                         // guarded by mutex_

    int failures_ = 0;       // the thread's own, as the two below
    Time notBefore_;         // when a child may be started again
    std::string lastReason_; // what was last reported
    std::thread thread_;     // last: it uses all of the above; the child ends with it
};

} // namespace mnemora
