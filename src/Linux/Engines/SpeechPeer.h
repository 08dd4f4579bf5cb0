#pragma once
// What a recogniser needs of the engine that does the work. Abstract so that the rules of
// requests are tested against a scripted one; the real one is EngineSpeechPeer.

#include "Engines/SpeechFrames.h"

#include <memory>
#include <string>

namespace mnemora {

/// Hears what the engine says about one stream. Main thread, never from inside a call of the peer.
struct SpeechListener {
    virtual ~SpeechListener() = default;

    /// Somebody began to speak.
    virtual void onSpeaking() = 0;
    /// Something was said.
    virtual void onUtterance(const engines::Utterance& utterance) = 0;
    /// All sound up to endSound() has been recognised; nothing more follows.
    virtual void onSoundEnded() = 0;
    /// The engine failed. The sound that it had taken is lost; sound that follows is recognised
    /// once the engine is back, unless endSound() was called.
    virtual void onFailure(const std::string& reason) = 0;
};

struct SpeechPeer {
    virtual ~SpeechPeer() = default;

    /// Whether speech would be recognised, as far as can be told without loading anything. Main
    /// thread.
    [[nodiscard]] virtual bool isUsable() const = 0;
    /// Opens a stream and returns its number; the engine starts where it doesn't run yet. Main
    /// thread.
    [[nodiscard]] virtual engines::StreamNumber open(std::weak_ptr<SpeechListener> listener) = 0;
    /// Takes a copy of the sound; never waits. Any thread.
    virtual void append(engines::StreamNumber stream, const PcmBuffer& buffer) = 0;
    /// No more sound comes of this stream: what is there is recognised. Main thread.
    virtual void endSound(engines::StreamNumber stream) = 0;
    /// Forgets the stream with everything in it; the listener hears nothing but what is on its way
    /// already. A second time does nothing. Main thread.
    virtual void close(engines::StreamNumber stream) = 0;
};

} // namespace mnemora
