#include "Linux/Engines/EngineTextRecognizer.h"

#include "Engines/RecognitionFrames.h"
#include "Linux/Engines/SealedPicture.h"
#include "Log.h"
#include "Support/Installation.h"
#include "Text/Encoding.h"

#include <algorithm>
#include <csignal>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>

namespace mnemora {
namespace {

using std::chrono::steady_clock;

// One picture being recognised and one waiting.
constexpr std::size_t mostJobs = 2;

engines::PictureShape shapeOf(const Image& image) {
    return {image.width, image.height, image.stride};
}

bool isWhole(const Image& image) {
    const auto shape = shapeOf(image);
    return image.pixels && shape.isValid() && image.pixels->size() >= shape.size();
}

recognition::PixelDigest digestOf(const Image& image) {
    const recognition::PictureView view{image.pixels->data(), image.width, image.height,
                                        image.stride};
    return recognition::digestOf(view, {0, 0, image.width, image.height});
}

/// Whether the child has ended, or says something that nobody has asked for: that would be taken
/// for the answer to the next picture.
bool isOutOfStep(int socket) {
    pollfd end{.fd = socket, .events = POLLIN, .revents = 0};
    return poll(&end, 1, 0) > 0;
}

// Signals are for the main thread to handle.
void blockSignals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
}

} // namespace

EngineSettings EngineSettings::ofInstallation() {
    EngineSettings settings;
    settings.program = installation::helpers() / "mnemora-engines";
    settings.model = installation::data() / "models/recognition";
    return settings;
}

EngineTextRecognizer::EngineTextRecognizer(EngineSettings settings)
    : settings_(std::move(settings)), thread_([this] { run(); }) {}

EngineTextRecognizer::~EngineTextRecognizer() {
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
        // Wakes the thread where it waits for an answer.
        if (child_)
            shutdown(child_->socket(), SHUT_RDWR);
    }
    arrived_.notify_all();
    finished_.notify_all();
    thread_.join();
}

bool EngineTextRecognizer::hasRoom() const {
    const std::lock_guard lock(mutex_);
    return jobs_.size() < mostJobs;
}

std::optional<pid_t> EngineTextRecognizer::child() const {
    const std::lock_guard lock(mutex_);
    return child_ ? std::optional(child_->pid()) : std::nullopt;
}

std::vector<RecognizedLine> EngineTextRecognizer::recognize(const Image& image) {
    if (!isWhole(image))
        return {};
    const auto job = std::make_shared<Job>(Job{.image = image, .digest = digestOf(image)});
    std::unique_lock lock(mutex_);
    if (last_ && last_->digest == job->digest)
        return last_->lines;
    if (jobs_.size() >= mostJobs || ending_)
        return {};
    jobs_.push_back(job);
    arrived_.notify_all();
    finished_.wait_for(lock, settings_.patience, [&] { return job->done || ending_; });
    return job->lines;
}

void EngineTextRecognizer::run() {
    blockSignals();
    pthread_setname_np(pthread_self(), "recognition");
    while (const auto job = nextJob())
        finish(job, answerFor(*job));
    endChild();
}

/// Waits for a picture, ending the child where that takes too long; null at the end.
std::shared_ptr<EngineTextRecognizer::Job> EngineTextRecognizer::nextJob() {
    std::unique_lock lock(mutex_);
    const auto isWanted = [this] { return ending_ || !jobs_.empty(); };
    if (child_ && !arrived_.wait_for(lock, settings_.idle, isWanted)) {
        lock.unlock();
        endChild();
        lock.lock();
    }
    arrived_.wait(lock, isWanted);
    return ending_ ? nullptr : jobs_.front();
}

void EngineTextRecognizer::finish(const std::shared_ptr<Job>& job, std::optional<Lines> lines) {
    const std::lock_guard lock(mutex_);
    if (lines) {
        job->lines = *lines;
        last_ = {job->digest, std::move(*lines)};
    }
    job->done = true;
    jobs_.pop_front();
    finished_.notify_all();
}

std::optional<EngineTextRecognizer::Lines> EngineTextRecognizer::answerFor(const Job& job) {
    {
        const std::lock_guard lock(mutex_);
        // It may have waited for the answer to a picture of the same pixels.
        if (last_ && last_->digest == job.digest)
            return last_->lines;
    }
    // One that ended while nothing was asked of it costs no picture.
    if (child_ && isOutOfStep(child_->socket()))
        endChild();
    if (!child_ && (steady_clock::now() < notBefore_ || !startChild()))
        return std::nullopt;
    auto lines = ask(job);
    if (lines) {
        failures_ = 0;
        lastReason_.clear();
        return lines;
    }
    endChild();
    noteFailure();
    return std::nullopt;
}

std::optional<EngineTextRecognizer::Lines> EngineTextRecognizer::ask(const Job& job) {
    const auto picture = sealedPicture(job.image);
    const auto deadline = steady_clock::now() + settings_.stuck;
    if (!picture ||
        !engines::sendFrame(child_->socket(), engines::FrameKind::picture,
                            engines::encodeShape(shapeOf(job.image)), picture.get(), deadline))
        return std::nullopt;
    const auto frame = engines::receiveFrame(child_->socket(), deadline);
    if (!frame || frame->kind != engines::FrameKind::lines)
        return std::nullopt;
    auto lines = engines::decodeLines(frame->payload);
    if (!lines)
        return std::nullopt;
    for (auto& line : *lines)
        if (line.bestCandidate)
            line.bestCandidate = cleanText(*line.bestCandidate);
    return lines;
}

bool EngineTextRecognizer::startChild() {
    auto child =
        engines::EngineProcess::start(settings_.program, {"recognition", settings_.model.string()});
    if (!child) {
        report("its program can't be started");
        noteFailure();
        return false;
    }
    const int socket = child->socket();
    {
        const std::lock_guard lock(mutex_);
        child_.emplace(std::move(*child));
        if (ending_)
            shutdown(socket, SHUT_RDWR);
    }
    const auto frame = engines::receiveFrame(socket, steady_clock::now() + settings_.stuck);
    if (frame && frame->kind == engines::FrameKind::ready)
        return true;
    const bool hasReason = frame && frame->kind == engines::FrameKind::unavailable;
    report(hasReason ? frame->payload : "its program ended at once");
    endChild();
    noteFailure();
    return false;
}

void EngineTextRecognizer::endChild() {
    const std::lock_guard lock(mutex_);
    child_.reset();
}

/// The first failure in a row costs its picture only; from the second on there are pauses.
void EngineTextRecognizer::noteFailure() {
    ++failures_;
    if (failures_ < 2)
        return;
    const auto doublings = std::min(failures_ - 2, 16);
    const auto pause = settings_.pause * (std::int64_t{1} << doublings);
    notBefore_ = steady_clock::now() + std::min<steady_clock::duration>(pause, settings_.maxPause);
}

void EngineTextRecognizer::report(const std::string& reason) {
    if (reason == lastReason_)
        return;
    lastReason_ = reason;
    const std::lock_guard lock(mutex_);
    if (!ending_)
        logError("text recognition is unavailable: " + repairedUtf8(reason));
}

} // namespace mnemora
