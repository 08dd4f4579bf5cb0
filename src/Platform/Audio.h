#pragma once
// Sound in: the microphone, and what the computer plays.

#include "Platform/SpeechRecognizer.h"
#include "Support/Outcome.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace mnemora {

/// The microphone, in its own format. One for the program's life, started and stopped as needed.
struct AudioInput {
    virtual ~AudioInput() = default;

    /// Asks for the permission to listen; answers once, on any thread.
    virtual void requestAccess(std::function<void(bool granted)> answer) = 0;
    /// Installs the one receiver of buffers of about `frames` frames each, called on a sound
    /// thread while the input runs. Main thread.
    virtual void installTap(int frames, std::function<void(const PcmBuffer&)> tap) = 0;
    /// After this the receiver is not called any more. Main thread.
    virtual void removeTap() = 0;
    /// Starts the input; the failure's words where that can't be done. A microphone that vanishes
    /// later is followed by the default one. Main thread, bounded.
    [[nodiscard]] virtual std::optional<Failure> start() = 0;
    virtual void stop() = 0;
};

/// A running capture of the computer's output. Destroying it stops it without waiting.
struct SystemAudioCapture {
    virtual ~SystemAudioCapture() = default;
};

/// What the computer plays, without our own sound.
struct SystemAudio {
    virtual ~SystemAudio() = default;

    /// How the captured sound is wanted.
    struct Format {
        double sampleRate = 48000;
        int channels = 1;
    };
    /// Whether there is an output that could be captured. Any thread but the main one.
    [[nodiscard]] virtual Outcome<bool> hasOutput() = 0;
    /// Starts capturing; `sink` is called on one serial sound thread. Any thread but the main one.
    [[nodiscard]] virtual Outcome<std::shared_ptr<SystemAudioCapture>>
    start(const Format& format, std::function<void(const PcmBuffer&)> sink) = 0;
};

} // namespace mnemora
