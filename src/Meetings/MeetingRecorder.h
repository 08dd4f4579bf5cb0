#pragma once
// Records a call as text: the microphone as "You", what the computer plays as "Them", each
// finished utterance stored as one event. The sound itself is never kept.

#include "Platform/Audio.h"

#include <functional>
#include <memory>
#include <mutex>
#include <string>

namespace mnemora {

class MnemoraStore;
class SpeechStream;

/// One a run, held by a shared pointer, reused for every recording. Main thread; sound arrives on
/// threads of its own.
class MeetingRecorder : public std::enable_shared_from_this<MeetingRecorder> {
  public:
    /// `store` outlives the recorder. Records nothing yet.
    explicit MeetingRecorder(MnemoraStore& store);
    ~MeetingRecorder();
    MeetingRecorder(const MeetingRecorder&) = delete;
    MeetingRecorder& operator=(const MeetingRecorder&) = delete;

    /// Asks for speech recognition, then for the microphone whatever the first answer was; true
    /// when both are granted. `completion` is called once, on any thread.
    static void requestPermissions(std::function<void(bool granted)> completion);

    /// Begins a recording; nothing when one is running. What doesn't work (no microphone, no
    /// output to listen to, no recogniser) is left out, the rest is recorded.
    void start();
    /// Ends it; nothing when none is running. Words not yet finalised are dropped.
    void stop();
    [[nodiscard]] bool isRecording() const { return isRecording_; }
    /// Calls `changed` each time a recording begins, before any sound is heard, and when it
    /// ends. One observer; an empty function ends it.
    void observeRecording(std::function<void(bool recording)> changed);

  private:
    using Stream = std::shared_ptr<SpeechStream>;

    [[nodiscard]] Stream openStream(const std::string& label);
    void setRecording(bool recording);
    void startMicrophone();
    void startSystemAudio();
    /// The set-up of the system's sound, on a background thread.
    void captureSystemAudio(unsigned recording);
    void saveSegment(const std::string& speaker, const std::string& text);
    /// Feeds one side of the given recording; does nothing once that one has ended.
    void append(Stream MeetingRecorder::*side, unsigned recording, const PcmBuffer& buffer);

    MnemoraStore& store_;
    bool isRecording_ = false;
    std::function<void(bool recording)> recordingChanged_;
    std::string sessionKey_;
    std::string sessionTitle_ = "Meeting";

    std::mutex mutex_;
    // guarded by mutex_, which is held while sound is appended, so that streams end on the main
    // thread only:
    Stream you_;
    Stream them_;
    std::shared_ptr<SystemAudioCapture> capture_; // set once capturing has started
    unsigned recording_ = 0;                      // changes with every start() and stop()
};

} // namespace mnemora
