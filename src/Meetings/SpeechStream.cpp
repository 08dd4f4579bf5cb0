#include "Meetings/SpeechStream.h"

#include "Platform/DesktopServices.h"
#include "Text/Characters.h"

#include <utility>

namespace mnemora {
namespace {

std::shared_ptr<SpeechRecognizer> recognizerFor(const std::string& locale) {
    const auto& speech = desktopServices().speech;
    return speech ? speech->recognizer(locale) : nullptr;
}

} // namespace

SpeechStream::SpeechStream(std::string label, const std::string& locale, SegmentHandler onSegment)
    : recognizer_(recognizerFor(locale)), label_(std::move(label)),
      onSegment_(std::move(onSegment)) {}

SpeechStream::~SpeechStream() = default;

void SpeechStream::start() {
    if (running_ || !recognizer_ || !recognizer_->isAvailable() ||
        !recognizer_->supportsOnDeviceRecognition())
        return;
    running_ = true;
    begin();
}

void SpeechStream::append(const PcmBuffer& buffer) {
    // The lock is held across the call, so that a request is never destroyed on a sound thread.
    const std::lock_guard lock(taskMutex_);
    if (task_)
        task_->append(buffer);
}

void SpeechStream::stop() {
    running_ = false;
    auto task = replaceTask(nullptr);
    if (!task)
        return;
    task->endAudio();
    task->finish();
    finishing_ = std::move(task);
}

void SpeechStream::begin() {
    if (!running_) {
        replaceTask(nullptr);
        return;
    }
    auto task = recognizer_->recognize(
        {.requiresOnDeviceRecognition = true, .shouldReportPartialResults = true},
        [weak = weak_from_this()](const auto& result, const auto& error) {
            if (const auto self = weak.lock())
                self->handle(result, error);
        });
    // The former request stays open until now: no sound falls between the two.
    replaceTask(std::move(task));
}

void SpeechStream::handle(const std::optional<SpeechResult>& result,
                          const std::optional<std::string>& error) {
    const bool isFinal = result && result->isFinal;
    if (!isFinal && !error)
        return;
    if (isFinal) {
        const auto text = trimmed(result->formattedString);
        if (!text.empty())
            onSegment_(label_, std::string(text));
    }
    finishing_.reset();
    begin();
}

std::unique_ptr<SpeechTask> SpeechStream::replaceTask(std::unique_ptr<SpeechTask> next) {
    const std::lock_guard lock(taskMutex_);
    return std::exchange(task_, std::move(next));
}

} // namespace mnemora
