#include "Meetings/MeetingRecorder.h"

#include "Log.h"
#include "Meetings/SpeechStream.h"
#include "Platform/CoreServices.h"
#include "Platform/DesktopServices.h"
#include "Store/MnemoraStore.h"

#include <cstdio>
#include <utility>

namespace mnemora {
namespace {

constexpr auto locale = "en-US";
constexpr int tapFrames = 2048;
constexpr SystemAudio::Format systemFormat{.sampleRate = 48000, .channels = 1};
/// The same words said on both sides within this many seconds are one segment.
constexpr double dedupWindow = 90;

std::string wholeSeconds(double moment) {
    char text[32];
    std::snprintf(text, sizeof text, "%.0f", moment);
    return text;
}

} // namespace

MeetingRecorder::MeetingRecorder(MnemoraStore& store) : store_(store) {}

MeetingRecorder::~MeetingRecorder() = default;

void MeetingRecorder::requestPermissions(std::function<void(bool)> completion) {
    const auto askForMicrophone = [input = desktopServices().audioInput,
                                   completion = std::move(completion)](bool authorized) {
        if (!input)
            return completion(false);
        input->requestAccess(
            [authorized, completion](bool granted) { completion(authorized && granted); });
    };
    if (const auto& speech = desktopServices().speech)
        speech->requestAuthorization(askForMicrophone);
    else
        askForMicrophone(false);
}

void MeetingRecorder::observeRecording(std::function<void(bool recording)> changed) {
    recordingChanged_ = std::move(changed);
}

void MeetingRecorder::setRecording(bool recording) {
    isRecording_ = recording;
    if (recordingChanged_)
        recordingChanged_(recording);
}

void MeetingRecorder::start() {
    if (isRecording_)
        return;
    setRecording(true);
    const Clock& clock = *coreServices().clock;
    const double moment = clock.now();
    sessionKey_ = wholeSeconds(moment);
    sessionTitle_ =
        "Meeting · " + clock.localized(moment, DateStyle::medium, DateStyle::shortStyle);
    logInfo("meeting recording started (on-device)");
    startMicrophone();
    startSystemAudio();
}

MeetingRecorder::Stream MeetingRecorder::openStream(const std::string& label) {
    auto stream = std::make_shared<SpeechStream>(
        label, locale, [weak = weak_from_this()](const auto& speaker, const auto& text) {
            if (const auto self = weak.lock())
                self->saveSegment(speaker, text);
        });
    stream->start();
    return stream;
}

void MeetingRecorder::startMicrophone() {
    unsigned recording = 0;
    {
        auto stream = openStream("You");
        const std::lock_guard lock(mutex_);
        you_ = std::move(stream);
        recording = ++recording_;
    }
    const auto& input = desktopServices().audioInput;
    if (!input)
        return logError("mic engine failed: this session has no sound input");
    input->installTap(tapFrames, [weak = weak_from_this(), recording](const PcmBuffer& buffer) {
        if (const auto self = weak.lock())
            self->append(&MeetingRecorder::you_, recording, buffer);
    });
    if (const auto failure = input->start())
        logError("mic engine failed: " + failure->description);
}

void MeetingRecorder::startSystemAudio() {
    unsigned recording = 0;
    {
        auto stream = openStream("Them");
        const std::lock_guard lock(mutex_);
        them_ = std::move(stream);
        recording = recording_;
    }
    desktopServices().mainLoop->background(
        [self = shared_from_this(), recording] { self->captureSystemAudio(recording); });
}

void MeetingRecorder::captureSystemAudio(unsigned recording) {
    const auto system = desktopServices().systemAudio;
    if (!system)
        return;
    const auto unavailable = [](const std::string& reason) {
        logError("system-audio capture unavailable: " + reason);
    };
    const auto output = system->hasOutput();
    if (!output)
        return unavailable(output.description());
    if (!*output)
        return;
    auto capture =
        system->start(systemFormat, [weak = weak_from_this(), recording](const PcmBuffer& buffer) {
            if (const auto self = weak.lock())
                self->append(&MeetingRecorder::them_, recording, buffer);
        });
    if (!capture)
        return unavailable(capture.description());
    const std::lock_guard lock(mutex_);
    if (recording == recording_)
        capture_ = std::move(*capture);
    // Else the recording ended meanwhile, and the late capture ends here.
}

void MeetingRecorder::append(Stream MeetingRecorder::*side, unsigned recording,
                             const PcmBuffer& buffer) {
    const std::lock_guard lock(mutex_);
    if (recording == recording_ && this->*side)
        (this->*side)->append(buffer);
}

void MeetingRecorder::saveSegment(const std::string& speaker, const std::string& text) {
    store_.insert({.ts = coreServices().clock->now(),
                   .source = "audio",
                   .app = "Meeting",
                   .bundle = sessionKey_,
                   .kind = "meeting",
                   .person = speaker,
                   .title = sessionTitle_,
                   .url = std::nullopt,
                   .body = text},
                  dedupWindow);
}

void MeetingRecorder::stop() {
    if (!isRecording_)
        return;
    setRecording(false);
    if (const auto& input = desktopServices().audioInput) {
        input->removeTap();
        input->stop();
    }
    Stream you;
    Stream them;
    std::shared_ptr<SystemAudioCapture> capture;
    {
        const std::lock_guard lock(mutex_);
        ++recording_;
        you = std::exchange(you_, nullptr);
        them = std::exchange(them_, nullptr);
        capture = std::exchange(capture_, nullptr);
    }
    you->stop();
    them->stop();
    capture.reset();
    logInfo("meeting recording stopped");
}

} // namespace mnemora
