#pragma once
// What the computer plays, by the sound server's client library.

#include "Platform/Audio.h"

namespace mnemora::pulse {

/// Listens to the monitor of the default sink, followed as it changes. This program plays no sound,
/// so none of its own is in it.
class PulseSystemAudio : public SystemAudio {
  public:
    /// Both wait 3 s at most for the server.
    [[nodiscard]] Outcome<bool> hasOutput() override;
    [[nodiscard]] Outcome<std::shared_ptr<SystemAudioCapture>>
    start(const Format& format, std::function<void(const PcmBuffer&)> sink) override;
};

} // namespace mnemora::pulse
