#pragma once
// A speech recogniser whose answers a test scripts; it remembers every request.

#include "Platform/SpeechRecognizer.h"

#include <algorithm>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace mnemora::test {

/// What happened to one request; outlives it.
struct RequestRecord {
    SpeechRequestOptions options;
    SpeechResultHandler handler;
    std::vector<double> buffers;    // sample rate of each appended buffer
    std::vector<std::string> calls; // endAudio and finish, in order
    bool open = true;               // false once the request was destroyed
    std::mutex mutex;               // guards buffers

    /// Answers as the recogniser would on the main thread.
    void answer(std::optional<SpeechResult> result, std::optional<std::string> error = {}) const {
        const auto handlerCopy = handler; // the request may go inside the call
        handlerCopy(result, error);
    }
    void finalText(const std::string& text) const {
        answer(SpeechResult{.formattedString = text, .isFinal = true});
    }
};

struct FakeSpeechRecognizer : SpeechRecognizer {
    bool available = true;
    bool onDevice = true;
    std::vector<std::shared_ptr<RequestRecord>> requests;

    [[nodiscard]] bool isAvailable() const override { return available; }
    [[nodiscard]] bool supportsOnDeviceRecognition() const override { return onDevice; }
    [[nodiscard]] std::unique_ptr<SpeechTask> recognize(const SpeechRequestOptions& options,
                                                        SpeechResultHandler handler) override {
        struct Task : SpeechTask {
            std::shared_ptr<RequestRecord> record;
            ~Task() override { record->open = false; }
            void append(const PcmBuffer& buffer) override {
                const std::lock_guard lock(record->mutex);
                record->buffers.push_back(buffer.sampleRate);
            }
            void endAudio() override { record->calls.emplace_back("endAudio"); }
            void finish() override { record->calls.emplace_back("finish"); }
        };
        auto task = std::make_unique<Task>();
        task->record = std::make_shared<RequestRecord>();
        task->record->options = options;
        task->record->handler = std::move(handler);
        requests.push_back(task->record);
        return task;
    }
    [[nodiscard]] auto openRequests() const {
        return std::ranges::count_if(requests, [](const auto& request) { return request->open; });
    }
    [[nodiscard]] const RequestRecord& last() const { return *requests.back(); }
};

/// Hands out one recogniser a call, in `recognizers`, and answers permission as arranged.
struct FakeSpeechService : SpeechService {
    bool authorized = true;
    bool knowsLocale = true;
    std::vector<std::string> locales;
    std::vector<std::shared_ptr<FakeSpeechRecognizer>> recognizers;
    /// What the next recognisers answer.
    FakeSpeechRecognizer pattern;

    std::shared_ptr<SpeechRecognizer> recognizer(const std::string& locale) override {
        locales.push_back(locale);
        if (!knowsLocale)
            return nullptr;
        recognizers.push_back(std::make_shared<FakeSpeechRecognizer>(pattern));
        return recognizers.back();
    }
    void requestAuthorization(std::function<void(bool)> answer) override { answer(authorized); }
};

} // namespace mnemora::test
