#include "Linux/Engines/EngineSpeechPeer.h"

#include "Linux/Engines/ModelManifest.h"
#include "Log.h"
#include "Support/Installation.h"

#include <algorithm>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace mnemora {
namespace {

using engines::FrameKind;
using engines::StreamNumber;
using std::chrono::steady_clock;

// Longer buffers go out in pieces of this many samples.
constexpr std::size_t longestPiece = 64UL * 1024;

bool hasAllFiles(const std::filesystem::path& folder, const char* manifestName) {
    const auto manifest = ModelManifest::read(folder / manifestName);
    return manifest && manifest->sizesMatch(folder);
}

} // namespace

SpeechEngineSettings SpeechEngineSettings::ofInstallation() {
    SpeechEngineSettings settings;
    settings.program = installation::helpers() / "mnemora-engines";
    settings.model = installation::data() / "models/speech";
    settings.runtime = installation::libraries() / "runtime";
    return settings;
}

EngineSpeechPeer::EngineSpeechPeer(SpeechEngineSettings settings,
                                   std::shared_ptr<MainLoop> mainLoop)
    : settings_(std::move(settings)), mainLoop_(std::move(mainLoop)),
      wakeUp_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), thread_([this] { run(); }) {}

EngineSpeechPeer::~EngineSpeechPeer() {
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
        // Wakes the thread where it waits for the child.
        if (child_)
            shutdown(child_->socket(), SHUT_RDWR);
    }
    wake();
    thread_.join();
}

bool EngineSpeechPeer::isUsable() const {
    {
        const std::lock_guard lock(mutex_);
        if (isDamaged_ || (isRefused_ && steady_clock::now() < notBefore_))
            return false;
    }
    return access(settings_.program.c_str(), X_OK) == 0 &&
           hasAllFiles(settings_.model, "manifest") &&
           hasAllFiles(settings_.runtime, "sherpa.manifest");
}

void EngineSpeechPeer::checkModel() {
    const auto manifest = ModelManifest::read(settings_.model / "manifest");
    const bool isDamaged = !manifest || !manifest->digestsMatch(settings_.model);
    const std::lock_guard lock(mutex_);
    if (isDamaged && !isDamaged_)
        logError("speech recognition is unavailable: a file of the model is missing or damaged");
    isDamaged_ = isDamaged;
}

std::optional<pid_t> EngineSpeechPeer::child() const {
    const std::lock_guard lock(mutex_);
    return state_ == State::ready ? std::optional(child_->pid()) : std::nullopt;
}

StreamNumber EngineSpeechPeer::open(std::weak_ptr<SpeechListener> listener) {
    StreamNumber number = 0;
    {
        const std::lock_guard lock(mutex_);
        number = ++lastNumber_;
        listeners_.emplace(number, std::move(listener));
    }
    wake();
    return number;
}

void EngineSpeechPeer::append(StreamNumber stream, const PcmBuffer& buffer) {
    if (!engines::isPossibleSound(buffer.sampleRate, buffer.channels))
        return;
    const auto channels = static_cast<std::size_t>(buffer.channels);
    const auto pieceSize = longestPiece / channels * channels;
    auto rest = std::span(buffer.samples).first(buffer.frames() * channels);
    while (!rest.empty()) {
        const auto piece = rest.first(std::min(pieceSize, rest.size()));
        rest = rest.subspan(piece.size());
        queue(FrameKind::sound, stream,
              engines::encodeSound({stream, buffer.sampleRate, static_cast<std::uint32_t>(channels),
                                    piece, buffer.origin}));
    }
}

void EngineSpeechPeer::endSound(StreamNumber stream) {
    queue(FrameKind::endOfSound, stream, engines::encodeStream(stream));
}

void EngineSpeechPeer::close(StreamNumber stream) {
    {
        const std::lock_guard lock(mutex_);
        if (listeners_.erase(stream) == 0)
            return;
        for (const auto& frame : waiting_)
            waitingBytes_ -= frame.isSoundOf(stream) ? frame.payload.size() : 0;
        std::erase_if(waiting_, [&](const auto& frame) { return frame.stream == stream; });
        if (state_ != State::absent)
            waiting_.push_back({FrameKind::closeStream, 0, engines::encodeStream(stream)});
        if (listeners_.empty())
            idleSince_ = steady_clock::now();
    }
    wake();
}

void EngineSpeechPeer::queue(FrameKind kind, StreamNumber stream, std::string payload) {
    {
        const std::lock_guard lock(mutex_);
        if (!listeners_.contains(stream))
            return;
        waitingBytes_ += kind == FrameKind::sound ? payload.size() : 0;
        waiting_.push_back({kind, stream, std::move(payload)});
        dropOldSound();
    }
    wake();
}

/// With the lock held. What remains of a stream is its newest sound.
void EngineSpeechPeer::dropOldSound() {
    auto oldest = waiting_.begin();
    while (waitingBytes_ > settings_.maxWaitingBytes && oldest != waiting_.end()) {
        if (oldest->kind != FrameKind::sound) {
            ++oldest;
            continue;
        }
        waitingBytes_ -= oldest->payload.size();
        oldest = waiting_.erase(oldest);
    }
}

void EngineSpeechPeer::wake() const {
    eventfd_write(wakeUp_.get(), 1);
}

} // namespace mnemora
