#pragma once
// The microphone by the sound server's client library.

#include "Platform/Audio.h"
#include "Platform/MainLoop.h"

#include <memory>
#include <mutex>

namespace mnemora::pulse {

class DeviceCapture;

/// The default source, followed as it changes, in its own sample rate and channels. Access is
/// granted when the server answers, a real source exists and can be listened to.
class PulseAudioInput : public AudioInput {
  public:
    explicit PulseAudioInput(std::shared_ptr<MainLoop> mainLoop);
    ~PulseAudioInput() override;

    void requestAccess(std::function<void(bool granted)> answer) override;
    void installTap(int frames, std::function<void(const PcmBuffer&)> tap) override;
    void removeTap() override;
    /// Waits 50 ms at most; a failure that comes later is an error line. Either way the input
    /// goes on looking for a microphone until it is stopped.
    [[nodiscard]] std::optional<Failure> start() override;
    void stop() override;

  private:
    static constexpr int defaultFrames = 2048;

    void deliver(const PcmBuffer& buffer);

    const std::shared_ptr<MainLoop> mainLoop_;
    int frames_ = defaultFrames; // main thread
    std::mutex tapMutex_;        // held during a call of the tap, so that removeTap() waits for it
    std::function<void(const PcmBuffer&)> tap_; // guarded by tapMutex_
    std::unique_ptr<DeviceCapture> capture_;    // while started
};

} // namespace mnemora::pulse
