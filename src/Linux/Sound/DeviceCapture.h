#pragma once
// Sound captured from whichever device is the default one: it follows the default, survives
// devices that vanish and servers that end, and takes part in nothing else.

#include "Linux/Sound/ServerConnection.h"
#include "Platform/SpeechRecognizer.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace mnemora::pulse {

/// What to capture and how.
struct CaptureRequest {
    enum class Device {
        microphone, ///< the default source, unless that only repeats an output
        output,     ///< what the default sink plays
    };
    Device device = Device::microphone;
    /// What the user reads in a mixer.
    std::string streamName;
    /// Frames of a buffer, about.
    int frames = 2048;
    /// 0: the device's own.
    unsigned sampleRate = 0;
    unsigned char channels = 0;
    /// Called on the capture's thread. An output's buffers come from loudspeakers, unless the sink
    /// is known to play into headphones.
    std::function<void(const PcmBuffer&)> sink;
};

/// Runs from its making to its end, which waits for a call of the sink that is under way.
/// Any thread but its own.
class DeviceCapture {
  public:
    explicit DeviceCapture(CaptureRequest request);
    ~DeviceCapture();
    DeviceCapture(const DeviceCapture&) = delete;
    DeviceCapture& operator=(const DeviceCapture&) = delete;

    /// How the first attempt went: absent while that is open, at the latest after `patience`;
    /// empty when sound is being captured, else the reason. The capture goes on trying either way.
    [[nodiscard]] std::optional<std::string> firstOutcome(std::chrono::milliseconds patience);
    /// Calls `failed` with the reason if the first attempt fails later than this call. Own thread.
    void whenFirstFails(std::function<void(const std::string& reason)> failed);

    /// Whether this is the thread that calls the sink.
    [[nodiscard]] bool isOwnThread() const { return connection_ && connection_->isLoopThread(); }

  private:
    void followDefaults(ServerConnection& server, const pa_server_info& facts);
    void sourceFound(const pa_source_info& source);
    void sinkFound(const pa_sink_info& sink);
    void open(const std::string& device, const pa_sample_spec& spec, const pa_channel_map& map);
    void close();
    void streamChanged();
    void read();
    void deliver(const float* samples, std::size_t bytes);
    void settle(const std::string& outcome);
    void unavailable(const std::string& reason);

    const CaptureRequest request_;

    std::mutex mutex_;
    std::condition_variable settled_;
    std::optional<std::string> outcome_;                    // guarded by mutex_
    std::function<void(const std::string& reason)> failed_; // guarded by mutex_

    // Used on the loop thread only:
    ServerConnection* server_ = nullptr; // the one that sends events; before connection_ is set
    StreamHandle stream_;
    std::string device_; // that stream_ listens to
    pa_sample_spec spec_{};
    PcmBuffer buffer_; // reused from one call of the sink to the next

    std::unique_ptr<ServerConnection> connection_; // last: its end ends the loop thread
};

} // namespace mnemora::pulse
