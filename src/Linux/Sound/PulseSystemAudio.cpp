#include "Linux/Sound/PulseSystemAudio.h"

#include "Linux/Sound/DeviceCapture.h"

#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>

namespace mnemora::pulse {
namespace {

using namespace std::chrono_literals;

constexpr auto patience = 3s;
/// About 43 ms at 48 kHz, as much as the microphone's buffers hold.
constexpr int frames = 2048;
constexpr auto noAnswer = "the sound server doesn't answer";

class RunningCapture : public SystemAudioCapture {
  public:
    explicit RunningCapture(CaptureRequest request)
        : capture(std::make_unique<DeviceCapture>(std::move(request))) {}
    RunningCapture(const RunningCapture&) = delete;
    RunningCapture& operator=(const RunningCapture&) = delete;
    ~RunningCapture() override {
        // Its thread can't wait for itself when the last owner goes inside the sink.
        if (capture->isOwnThread())
            std::thread([last = std::move(capture)] {}).detach();
    }

    std::unique_ptr<DeviceCapture> capture;
};

/// Waits for the server's first answer.
class Question {
  public:
    Outcome<bool> wait() {
        std::unique_lock lock(mutex_);
        if (!answered_.wait_for(lock, patience, [this] { return answer_.has_value(); }))
            return Failure{noAnswer};
        return *answer_;
    }
    void answer(const Outcome<bool>& outcome) {
        const std::lock_guard lock(mutex_);
        if (!answer_)
            answer_ = outcome;
        answered_.notify_all();
    }

  private:
    std::mutex mutex_;
    std::condition_variable answered_;
    std::optional<Outcome<bool>> answer_; // guarded by mutex_
};

} // namespace

Outcome<bool> PulseSystemAudio::hasOutput() {
    Question question;
    const auto connection = ServerConnection::open(
        {.facts =
             [&](auto&, const pa_server_info& facts) {
                 const char* sink = facts.default_sink_name;
                 question.answer(sink != nullptr && *sink != '\0');
             },
         .lost = [&](const std::string& reason) { question.answer(Failure{reason}); }});
    if (!connection)
        return Failure{"no thread for sound"};
    return question.wait();
}

Outcome<std::shared_ptr<SystemAudioCapture>>
PulseSystemAudio::start(const Format& format, std::function<void(const PcmBuffer&)> sink) {
    auto running = std::make_shared<RunningCapture>(
        CaptureRequest{.device = CaptureRequest::Device::output,
                       .streamName = "System audio",
                       .frames = frames,
                       .sampleRate = static_cast<unsigned>(format.sampleRate),
                       .channels = static_cast<unsigned char>(format.channels),
                       .sink = std::move(sink)});
    const auto outcome = running->capture->firstOutcome(patience);
    if (!outcome || !outcome->empty())
        return Failure{outcome.value_or(noAnswer)};
    return std::shared_ptr<SystemAudioCapture>(std::move(running));
}

} // namespace mnemora::pulse
