#pragma once
// Speech recognition in a child process. It is started when the first stream is opened and ended
// some minutes after the last one was closed, so that its memory really returns; when it dies, what
// it was hearing is lost and the sound that comes next starts it again.

#include "Engines/Channel.h"
#include "Linux/Engines/EngineProcess.h"
#include "Linux/Engines/SpeechPeer.h"
#include "Platform/MainLoop.h"

#include <atomic>
#include <chrono>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <thread>

namespace mnemora {

/// How an EngineSpeechPeer runs its child. The times suit the program; tests shorten them.
struct SpeechEngineSettings {
    std::filesystem::path program;
    std::filesystem::path model;
    /// Holds the library and its manifest.
    std::filesystem::path runtime;
    /// The child ends this long after the last stream was closed.
    std::chrono::milliseconds idle = std::chrono::minutes(5);
    /// A child that takes no sound for this long is ended.
    std::chrono::milliseconds stuck = std::chrono::minutes(1);
    /// The pause after the second failure in a row, doubled with each further one up to `maxPause`.
    std::chrono::milliseconds pause = std::chrono::seconds(30);
    std::chrono::milliseconds maxPause = std::chrono::minutes(10);
    /// Sound that waits for the child; the oldest goes first. Half a minute of two streams.
    std::size_t maxWaitingBytes = 16UL * 1024 * 1024;
    /// Sees every utterance with its times, on the main thread before the stream's listener.
    std::function<void(const engines::Utterance&)> observer = {};

    /// The child and the model of this installation.
    [[nodiscard]] static SpeechEngineSettings ofInstallation();
};

/// One thread starts the child and talks to it; sound that can't go out at once waits in memory.
class EngineSpeechPeer : public SpeechPeer {
  public:
    EngineSpeechPeer(SpeechEngineSettings settings, std::shared_ptr<MainLoop> mainLoop);
    /// Ends the child; listeners hear nothing more.
    ~EngineSpeechPeer() override;
    EngineSpeechPeer(const EngineSpeechPeer&) = delete;
    EngineSpeechPeer& operator=(const EngineSpeechPeer&) = delete;

    [[nodiscard]] bool isUsable() const override;
    [[nodiscard]] engines::StreamNumber open(std::weak_ptr<SpeechListener> listener) override;
    void append(engines::StreamNumber stream, const PcmBuffer& buffer) override;
    void endSound(engines::StreamNumber stream) override;
    void close(engines::StreamNumber stream) override;

    /// Reads the model's files and finds out whether they are what was built: from then on a
    /// damaged one counts as unusable. Any thread but the main one.
    void checkModel();

    /// The child's process once it is ready. Any thread.
    [[nodiscard]] std::optional<pid_t> child() const;

  private:
    using Time = std::chrono::steady_clock::time_point;

    struct Waiting {
        engines::FrameKind kind;
        engines::StreamNumber stream;
        std::string payload;

        [[nodiscard]] bool isSoundOf(engines::StreamNumber number) const {
            return kind == engines::FrameKind::sound && stream == number;
        }
    };
    enum class State { absent, starting, ready };

    void queue(engines::FrameKind kind, engines::StreamNumber stream, std::string payload);
    void dropOldSound();
    void wake() const;

    // The thread's own.
    void run();
    void wait() const;
    [[nodiscard]] int patience() const;
    [[nodiscard]] bool isEnding() const;
    [[nodiscard]] bool mayStart() const;
    [[nodiscard]] bool isIdle() const;
    void startChild();
    void setReady(bool ready);
    void stopChild();
    void fail(const std::string& reason);
    void notePause();
    [[nodiscard]] std::optional<Waiting> nextWaiting();
    void sendWaiting();
    void receiveFrames();
    [[nodiscard]] bool handle(const engines::Frame& frame);
    [[nodiscard]] bool hearUtterance(const engines::Utterance& utterance);
    template <class Call>
    void tell(engines::StreamNumber stream, Call call);

    const SpeechEngineSettings settings_;
    const std::shared_ptr<MainLoop> mainLoop_;
    FileDescriptor wakeUp_;

    mutable std::mutex mutex_; // guards everything down to the thread's own
    std::map<engines::StreamNumber, std::weak_ptr<SpeechListener>> listeners_;
    engines::StreamNumber lastNumber_ = 0;
    std::deque<Waiting> waiting_;
    std::size_t waitingBytes_ = 0;
    State state_ = State::absent; // written by the thread alone, as child_
    std::optional<engines::EngineProcess> child_;
    Time idleSince_;
    Time notBefore_;         // when a child may be started again
    bool isRefused_ = false; // the last start failed
    bool isDamaged_ = false;
    bool ending_ = false;

    /// What has been said and not yet been heard on the main thread.
    const std::shared_ptr<std::atomic<int>> unheard_ = std::make_shared<std::atomic<int>>(0);

    int failures_ = 0;       // the thread's own, as the one below
    std::string lastReason_; // what was last reported
    std::thread thread_;     // last: it uses all of the above; the child ends with it
};

} // namespace mnemora
