#include "Linux/Screen/ScreenCastPortal.h"

#include "Linux/Screen/ScreenCastSession.h"

#include <utility>

namespace mnemora::portal {

ScreenCastPortal::ScreenCastPortal(desktop::GLibThread& thread, Options options)
    : thread_(thread), session_(std::make_shared<Session>(std::move(options))) {
    thread_.invoke([session = session_] { session->begin(); });
}

// What is left of the session goes where it was used.
ScreenCastPortal::~ScreenCastPortal() {
    thread_.invoke([session = std::move(session_)] { session->close(); });
}

ScreenCastPortal::Presence ScreenCastPortal::presence() const {
    const std::lock_guard lock(session_->state.mutex);
    return session_->state.presence;
}

ScreenCastPortal::Presence
ScreenCastPortal::waitUntilKnown(std::chrono::milliseconds patience) const {
    auto& state = session_->state;
    std::unique_lock lock(state.mutex);
    state.changed.wait_for(lock, patience, [&] { return state.presence != Presence::unknown; });
    return state.presence;
}

bool ScreenCastPortal::isPermitted() {
    auto& state = session_->state;
    const std::lock_guard lock(state.mutex);
    if (state.presence == Presence::absent)
        return false;
    if (state.stream && state.stream->isAlive())
        return true;
    if (state.stream) {
        thread_.invoke([session = session_] { session->castEnded(); });
    } else if (!state.isStarting && !state.token.empty() && state.presence == Presence::present &&
               std::chrono::steady_clock::now() >= state.notBefore) {
        thread_.invoke([session = session_] { session->startIfIdle(); });
    }
    return !state.token.empty() && state.failures == 0;
}

std::shared_ptr<FrameStream> ScreenCastPortal::stream(std::chrono::milliseconds patience) {
    auto& state = session_->state;
    std::unique_lock lock(state.mutex);
    state.changed.wait_for(lock, patience, [&] { return !state.isStarting; });
    return state.stream;
}

void ScreenCastPortal::restart() {
    thread_.invoke([session = session_] { session->castEnded(); });
}

void ScreenCastPortal::ask() {
    thread_.invoke([session = session_] { session->start(true); });
}

void ScreenCastPortal::withdraw() {
    thread_.invoke([session = session_] { session->withdraw(); });
}

ScreenCastPortal::Status ScreenCastPortal::status() const {
    const std::lock_guard lock(session_->state.mutex);
    return session_->state.status;
}

} // namespace mnemora::portal
