#include "Linux/Engines/EngineSpeechRecognizer.h"

#include <atomic>
#include <deque>
#include <utility>

namespace mnemora {

/// One open request. Its task owns it.
struct EngineSpeechRecognizer::Request {
    SpeechRequestOptions options;
    SpeechResultHandler handler;
    bool isAnswered = false;

    void answer(const std::optional<SpeechResult>& result,
                const std::optional<std::string>& error = std::nullopt) {
        isAnswered = isAnswered || error || (result && result->isFinal);
        // The request usually goes inside the call.
        const auto kept = handler;
        kept(result, error);
    }
};

/// Spreads errors: the first comes at once, those within a second of it become one after it.
class EngineSpeechRecognizer::Errors : public std::enable_shared_from_this<Errors> {
  public:
    explicit Errors(std::shared_ptr<MainLoop> mainLoop) : mainLoop_(std::move(mainLoop)) {}

    void report(std::weak_ptr<Stream> stream, const std::string& reason);

  private:
    void onPauseOver();

    const std::shared_ptr<MainLoop> mainLoop_;
    std::unique_ptr<Timer> pause_;
    std::weak_ptr<Stream> waitingStream_;
    std::optional<std::string> waiting_;
};

/// The sound that requests are views of.
class EngineSpeechRecognizer::Stream : public SpeechListener,
                                       public std::enable_shared_from_this<Stream> {
  public:
    static std::shared_ptr<Stream> open(std::shared_ptr<SpeechPeer> peer,
                                        std::shared_ptr<MainLoop> mainLoop,
                                        std::shared_ptr<Errors> errors) {
        auto stream = std::shared_ptr<Stream>(new Stream(peer, mainLoop, errors));
        stream->number_ = peer->open(stream);
        return stream;
    }
    /// Closing a stream twice is harmless.
    ~Stream() override { peer_->close(number_); }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    void attach(const std::shared_ptr<Request>& request) {
        request_ = request;
        if (!waiting_.empty())
            mainLoop_->post([weak = weak_from_this()] {
                if (const auto stream = weak.lock())
                    stream->answerWaiting();
            });
    }

    void append(const PcmBuffer& buffer) {
        if (!ended_)
            peer_->append(number_, buffer);
    }

    void endSound() {
        if (!ended_.exchange(true))
            peer_->endSound(number_);
    }

    /// The request goes without an answer: its sound too, unless a later one is open.
    void abandon(const Request& request) {
        if (request_.lock().get() != &request)
            return;
        ended_ = true;
        waiting_.clear();
        peer_->close(number_);
    }

    [[nodiscard]] bool hasEnded() const { return ended_; }

    void onSpeaking() override {
        const auto request = openRequest();
        if (request && request->options.shouldReportPartialResults)
            request->answer(SpeechResult{});
    }

    void onUtterance(const engines::Utterance& utterance) override {
        waiting_.push_back(utterance.text);
        if (!ended_)
            answerWaiting();
    }

    void onSoundEnded() override {
        peer_->close(number_);
        answerWithTheRest();
    }

    void onFailure(const std::string& reason) override {
        if (!ended_)
            return errors_->report(weak_from_this(), reason);
        peer_->close(number_);
        if (waiting_.empty())
            answerError(reason);
        else
            answerWithTheRest();
    }

    void answerError(const std::string& reason) {
        if (const auto request = openRequest())
            request->answer(std::nullopt, reason);
    }

  private:
    Stream(std::shared_ptr<SpeechPeer> peer, std::shared_ptr<MainLoop> mainLoop,
           std::shared_ptr<Errors> errors)
        : peer_(std::move(peer)), mainLoop_(std::move(mainLoop)), errors_(std::move(errors)) {}

    [[nodiscard]] std::shared_ptr<Request> openRequest() const {
        const auto request = request_.lock();
        return request && !request->isAnswered ? request : nullptr;
    }

    void answerWaiting() {
        const auto request = openRequest();
        if (!request || waiting_.empty() || ended_)
            return;
        const auto text = std::move(waiting_.front());
        waiting_.pop_front();
        request->answer(SpeechResult{.formattedString = text, .isFinal = true});
    }

    void answerWithTheRest() {
        std::string text;
        for (const auto& part : std::exchange(waiting_, {}))
            text += text.empty() ? part : " " + part;
        if (const auto request = openRequest())
            request->answer(SpeechResult{.formattedString = text, .isFinal = true});
    }

    const std::shared_ptr<SpeechPeer> peer_;
    const std::shared_ptr<MainLoop> mainLoop_;
    const std::shared_ptr<Errors> errors_;
    engines::StreamNumber number_ = 0;
    std::atomic<bool> ended_ = false;
    std::weak_ptr<Request> request_;
    std::deque<std::string> waiting_; // said, and no request told yet
};

void EngineSpeechRecognizer::Errors::report(std::weak_ptr<Stream> stream,
                                            const std::string& reason) {
    waitingStream_ = std::move(stream);
    waiting_ = reason;
    if (!pause_)
        onPauseOver();
}

void EngineSpeechRecognizer::Errors::onPauseOver() {
    pause_.reset();
    const auto stream = waitingStream_.lock();
    const auto reason = std::exchange(waiting_, std::nullopt);
    if (!stream || !reason)
        return;
    pause_ = mainLoop_->after(errorPause, [weak = weak_from_this()] {
        if (const auto errors = weak.lock())
            errors->onPauseOver();
    });
    stream->answerError(*reason);
}

/// What the owner of a request holds.
class EngineSpeechRecognizer::Task : public SpeechTask {
  public:
    Task(std::shared_ptr<Stream> stream, std::shared_ptr<Request> request)
        : stream_(std::move(stream)), request_(std::move(request)) {}
    ~Task() override {
        // Without an answer nobody wants this sound any more; the next request starts a stream.
        if (!request_->isAnswered)
            stream_->abandon(*request_);
    }
    Task(const Task&) = delete;
    Task& operator=(const Task&) = delete;

    void append(const PcmBuffer& buffer) override { stream_->append(buffer); }
    void endAudio() override { stream_->endSound(); }
    void finish() override { stream_->endSound(); }

  private:
    const std::shared_ptr<Stream> stream_;
    const std::shared_ptr<Request> request_;
};

EngineSpeechRecognizer::EngineSpeechRecognizer(std::shared_ptr<SpeechPeer> peer,
                                               std::shared_ptr<MainLoop> mainLoop)
    : peer_(std::move(peer)), mainLoop_(std::move(mainLoop)),
      errors_(std::make_shared<Errors>(mainLoop_)) {}

EngineSpeechRecognizer::~EngineSpeechRecognizer() = default;

bool EngineSpeechRecognizer::isAvailable() const {
    return peer_->isUsable();
}

// The engine has no way to the network.
bool EngineSpeechRecognizer::supportsOnDeviceRecognition() const {
    return true;
}

std::unique_ptr<SpeechTask> EngineSpeechRecognizer::recognize(const SpeechRequestOptions& options,
                                                              SpeechResultHandler handler) {
    if (!stream_ || stream_->hasEnded())
        stream_ = Stream::open(peer_, mainLoop_, errors_);
    auto request = std::make_shared<Request>(Request{options, std::move(handler)});
    stream_->attach(request);
    return std::make_unique<Task>(stream_, std::move(request));
}

} // namespace mnemora
