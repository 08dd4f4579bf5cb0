// The thread of EngineSpeechPeer: it alone starts, feeds, hears and ends the child.

#include "Linux/Engines/EngineSpeechPeer.h"
#include "Log.h"
#include "Text/Encoding.h"

#include <algorithm>
#include <array>
#include <climits>
#include <csignal>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

namespace mnemora {
namespace {

using engines::FrameKind;
using engines::StreamNumber;
using std::chrono::steady_clock;

// Nobody speaks so fast that the main thread has this much to catch up with.
constexpr int mostUnheard = 1000;

// Signals are for the main thread to handle.
void blockSignals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
}

bool hasInput(int socket) {
    pollfd end{.fd = socket, .events = POLLIN, .revents = 0};
    return poll(&end, 1, 0) > 0;
}

} // namespace

void EngineSpeechPeer::run() {
    blockSignals();
    pthread_setname_np(pthread_self(), "speech");
    while (!isEnding()) {
        if (child_ && isIdle())
            stopChild();
        if (!child_ && mayStart())
            startChild();
        sendWaiting();
        wait();
        receiveFrames();
    }
    stopChild();
}

bool EngineSpeechPeer::isEnding() const {
    const std::lock_guard lock(mutex_);
    return ending_;
}

bool EngineSpeechPeer::isIdle() const {
    const std::lock_guard lock(mutex_);
    return listeners_.empty() && steady_clock::now() >= idleSince_ + settings_.idle;
}

bool EngineSpeechPeer::mayStart() const {
    const std::lock_guard lock(mutex_);
    return !ending_ && !listeners_.empty() && steady_clock::now() >= notBefore_;
}

/// How long there is nothing to do but to listen, in milliseconds; -1 means for ever.
int EngineSpeechPeer::patience() const {
    const std::lock_guard lock(mutex_);
    if (child_.has_value() != listeners_.empty())
        return -1;
    const auto next = child_ ? idleSince_ + settings_.idle : notBefore_;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - steady_clock::now());
    return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, INT_MAX));
}

void EngineSpeechPeer::wait() const {
    const int socket = child_ ? child_->socket() : -1;
    std::array<pollfd, 2> ends{{{.fd = wakeUp_.get(), .events = POLLIN, .revents = 0},
                                {.fd = socket, .events = POLLIN, .revents = 0}}};
    poll(ends.data(), ends.size(), patience());
    eventfd_t count = 0;
    eventfd_read(wakeUp_.get(), &count);
}

void EngineSpeechPeer::startChild() {
    auto child =
        engines::EngineProcess::start(settings_.program, {"speech", settings_.model.string()});
    if (!child) {
        setReady(false);
        fail("its program can't be started");
        return;
    }
    const int socket = child->socket();
    {
        const std::lock_guard lock(mutex_);
        child_.emplace(std::move(*child));
        state_ = State::starting;
        if (ending_)
            shutdown(socket, SHUT_RDWR);
    }
    const auto frame = engines::receiveFrame(socket, steady_clock::now() + settings_.stuck);
    const bool isReady = frame && frame->kind == FrameKind::ready;
    setReady(isReady);
    if (isReady)
        return;
    const bool hasReason = frame && frame->kind == FrameKind::unavailable;
    fail(hasReason ? frame->payload : "its program ended at once");
}

void EngineSpeechPeer::setReady(bool ready) {
    const std::lock_guard lock(mutex_);
    isRefused_ = !ready;
    if (ready)
        state_ = State::ready;
}

void EngineSpeechPeer::stopChild() {
    std::optional<engines::EngineProcess> ended; // collected without the lock: that takes a while
    const std::lock_guard lock(mutex_);
    state_ = State::absent;
    if (child_)
        ended.emplace(std::move(*child_));
    child_.reset();
}

void EngineSpeechPeer::fail(const std::string& reason) {
    stopChild();
    notePause();
    const auto words = "speech recognition is unavailable: " + repairedUtf8(reason);
    const std::lock_guard lock(mutex_);
    if (ending_)
        return;
    if (reason != lastReason_)
        logError(words);
    lastReason_ = reason;
    for (const auto& [number, listener] : listeners_)
        mainLoop_->post([weak = listener, words] {
            if (const auto hearing = weak.lock())
                hearing->onFailure(words);
        });
}

/// The first failure in a row costs what was being said only; from the second on there are pauses.
void EngineSpeechPeer::notePause() {
    ++failures_;
    const std::lock_guard lock(mutex_);
    // A child that couldn't even start won't do better at once.
    if (failures_ < 2 && !isRefused_)
        return;
    const auto doublings = std::clamp(failures_ - 2, 0, 16);
    const auto pause = settings_.pause * (std::int64_t{1} << doublings);
    notBefore_ = steady_clock::now() + std::min<steady_clock::duration>(pause, settings_.maxPause);
}

std::optional<EngineSpeechPeer::Waiting> EngineSpeechPeer::nextWaiting() {
    const std::lock_guard lock(mutex_);
    if (waiting_.empty())
        return std::nullopt;
    auto frame = std::move(waiting_.front());
    waiting_.pop_front();
    waitingBytes_ -= frame.kind == FrameKind::sound ? frame.payload.size() : 0;
    return frame;
}

void EngineSpeechPeer::sendWaiting() {
    while (child_) {
        const auto frame = nextWaiting();
        if (!frame)
            return;
        if (!engines::sendFrame(child_->socket(), frame->kind, frame->payload, -1,
                                steady_clock::now() + settings_.stuck))
            return fail("its program ended or takes no more sound");
        // What the child says isn't kept waiting behind a backlog of sound.
        receiveFrames();
    }
}

void EngineSpeechPeer::receiveFrames() {
    while (child_ && hasInput(child_->socket())) {
        const auto frame =
            engines::receiveFrame(child_->socket(), steady_clock::now() + settings_.stuck);
        if (!frame || !handle(*frame))
            fail("its program ended");
    }
}

bool EngineSpeechPeer::handle(const engines::Frame& frame) {
    if (*unheard_ > mostUnheard)
        return false;
    if (frame.kind == FrameKind::utterance) {
        const auto utterance = engines::decodeUtterance(frame.payload);
        return utterance && hearUtterance(*utterance);
    }
    const auto stream = engines::decodeStream(frame.payload);
    if (!stream || (frame.kind != FrameKind::speaking && frame.kind != FrameKind::soundEnded))
        return false;
    if (frame.kind == FrameKind::speaking)
        tell(*stream, [](SpeechListener& listener) { listener.onSpeaking(); });
    else
        tell(*stream, [](SpeechListener& listener) { listener.onSoundEnded(); });
    return true;
}

bool EngineSpeechPeer::hearUtterance(const engines::Utterance& utterance) {
    failures_ = 0;
    lastReason_.clear();
    auto repaired = utterance;
    repaired.text = cleanText(utterance.text);
    tell(utterance.stream, [repaired, observer = settings_.observer](SpeechListener& listener) {
        if (observer)
            observer(repaired);
        listener.onUtterance(repaired);
    });
    return true;
}

template <class Call>
void EngineSpeechPeer::tell(StreamNumber stream, Call call) {
    const std::lock_guard lock(mutex_);
    const auto found = listeners_.find(stream);
    if (found == listeners_.end() || ending_)
        return;
    ++*unheard_;
    mainLoop_->post([weak = found->second, unheard = unheard_, call = std::move(call)] {
        --*unheard;
        if (const auto listener = weak.lock())
            call(*listener);
    });
}

} // namespace mnemora
