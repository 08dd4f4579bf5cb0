#pragma once
// One continuous source of sound (the microphone, or what the computer plays) turned into
// transcript segments: one recognition request is open at a time, each final result hands out a
// segment and opens the next, so that a recording of any length becomes one segment an utterance.

#include "Platform/SpeechRecognizer.h"

#include <functional>
#include <memory>
#include <mutex>
#include <string>

namespace mnemora {

/// Held by a shared pointer: its results come only while its owner holds it. Main thread, where
/// segments are handed out too, except for append().
class SpeechStream : public std::enable_shared_from_this<SpeechStream> {
  public:
    /// Receives the stream's label and a segment: trimmed, never empty.
    using SegmentHandler = std::function<void(const std::string& label, const std::string& text)>;

    /// Takes the recogniser for `locale` ("en-US") from the installed services; starts nothing.
    SpeechStream(std::string label, const std::string& locale, SegmentHandler onSegment);
    ~SpeechStream();
    SpeechStream(const SpeechStream&) = delete;
    SpeechStream& operator=(const SpeechStream&) = delete;

    /// Starts recognising, unless it already runs or there is no recogniser that is available and
    /// works on this device; then it stays idle, silently.
    void start();
    /// Hands sound to the open request; without one it is dropped. Any thread; never waits for
    /// recognition and never fails.
    void append(const PcmBuffer& buffer);
    /// Ends the open request and opens no other. What was spoken already is completed and still
    /// handed out while the stream lives. Harmless when idle.
    void stop();

  private:
    void begin();
    void handle(const std::optional<SpeechResult>& result, const std::optional<std::string>& error);
    std::unique_ptr<SpeechTask> replaceTask(std::unique_ptr<SpeechTask> next);

    const std::shared_ptr<SpeechRecognizer> recognizer_; // null when the platform has none
    const std::string label_;
    const SegmentHandler onSegment_;
    bool running_ = false;
    std::mutex taskMutex_;
    std::unique_ptr<SpeechTask> task_; // guarded by taskMutex_: the open request
    // The request that stop() ended, kept until it has answered: without an owner it would be
    // abandoned with the last words in it.
    std::unique_ptr<SpeechTask> finishing_;
};

} // namespace mnemora
