#include "Linux/Sound/PulseAudioInput.h"

#include "Linux/Sound/DeviceCapture.h"
#include "Log.h"

#include <utility>

namespace mnemora::pulse {
namespace {

using namespace std::chrono_literals;

constexpr auto patienceOfMainThread = 50ms;
constexpr auto patienceOfWorker = 3s;

CaptureRequest request(int frames, std::function<void(const PcmBuffer&)> sink) {
    return {.device = CaptureRequest::Device::microphone,
            .streamName = "Microphone",
            .frames = frames,
            .sampleRate = 0,
            .channels = 0,
            .sink = std::move(sink)};
}

} // namespace

PulseAudioInput::PulseAudioInput(std::shared_ptr<MainLoop> mainLoop)
    : mainLoop_(std::move(mainLoop)) {}

PulseAudioInput::~PulseAudioInput() = default;

void PulseAudioInput::requestAccess(std::function<void(bool)> answer) {
    // Comes from any thread, so nothing of this object is read.
    mainLoop_->background([answer = std::move(answer)] {
        DeviceCapture probe(request(defaultFrames, nullptr));
        const auto outcome = probe.firstOutcome(patienceOfWorker);
        const bool granted = outcome && outcome->empty();
        if (!granted)
            logError("microphone refused: " + outcome.value_or("the sound server doesn't answer"));
        answer(granted);
    });
}

void PulseAudioInput::installTap(int frames, std::function<void(const PcmBuffer&)> tap) {
    frames_ = frames;
    const std::lock_guard lock(tapMutex_);
    tap_ = std::move(tap);
}

void PulseAudioInput::removeTap() {
    const std::lock_guard lock(tapMutex_);
    tap_ = nullptr;
}

std::optional<Failure> PulseAudioInput::start() {
    capture_ = std::make_unique<DeviceCapture>(
        request(frames_, [this](const PcmBuffer& buffer) { deliver(buffer); }));
    const auto outcome = capture_->firstOutcome(patienceOfMainThread);
    if (!outcome) {
        capture_->whenFirstFails(
            [](const std::string& reason) { logError("mic engine failed: " + reason); });
        return std::nullopt;
    }
    return outcome->empty() ? std::nullopt : std::optional(Failure{*outcome});
}

void PulseAudioInput::stop() {
    capture_.reset();
}

void PulseAudioInput::deliver(const PcmBuffer& buffer) {
    const std::lock_guard lock(tapMutex_);
    if (tap_)
        tap_(buffer);
}

} // namespace mnemora::pulse
