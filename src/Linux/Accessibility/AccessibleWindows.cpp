#include "Linux/Accessibility/AccessibleWindows.h"

#include "Linux/Accessibility/ProgramListener.h"

#include <cstdint>
#include <functional>
#include <utility>

namespace mnemora::atspi {
namespace {

// Processes that never say a word on the bus don't leave it either.
constexpr std::size_t mostProcesses = 256;

} // namespace

void AccessibleWindows::Shared::forgetReadings() {
    for (auto& [process, state] : processes) {
        state.reading = WindowReading();
        state.isOnBus = false;
    }
}

void AccessibleWindows::Shared::forgetSilent() {
    if (processes.size() >= mostProcesses)
        std::erase_if(processes, [](const auto& entry) {
            const ProcessState& state = entry.second;
            return !state.isOnBus && state.asked == state.answered;
        });
}

AccessiblePrograms AccessibleWindows::Shared::programs() const {
    AccessiblePrograms all{{}, changes, changedAt};
    for (const auto& [process, state] : processes)
        if (state.isOnBus)
            all.programs.push_back({state.facts, state.reading});
    return all;
}

void AccessibleWindows::Shared::tellChange() {
    std::unique_lock lock(mutex);
    ++changes;
    changedAt = Clock::now();
    const auto told = follower;
    lock.unlock();
    if (told)
        told();
}

AccessibleWindows::AccessibleWindows()
    : shared_(std::make_shared<Shared>()), listener_(std::make_unique<Listener>(shared_)) {}

AccessibleWindows::~AccessibleWindows() = default;

bool AccessibleWindows::isAvailable() const {
    const std::lock_guard lock(shared_->mutex);
    return shared_->isAvailable;
}

bool AccessibleWindows::waitUntilKnown(std::chrono::milliseconds patience) const {
    std::unique_lock lock(shared_->mutex);
    return shared_->changed.wait_for(lock, patience, [&] { return shared_->isKnown; });
}

std::optional<WindowReading> AccessibleWindows::read(int processIdentifier,
                                                     std::chrono::milliseconds patience) {
    std::unique_lock lock(shared_->mutex);
    shared_->forgetSilent();
    ProcessState& known = shared_->processes[processIdentifier];
    if (!shared_->isAvailable || Clock::now() < known.hungUntil)
        return std::nullopt;
    const std::uint64_t ticket = ++known.asked;
    lock.unlock();
    listener_->ask(processIdentifier, ticket);
    lock.lock();
    const bool inTime = shared_->changed.wait_for(lock, patience, [&] {
        return shared_->processes[processIdentifier].answered >= ticket || !shared_->isAvailable;
    });
    const ProcessState& state = shared_->processes[processIdentifier];
    if (!inTime || !shared_->isAvailable || Clock::now() < state.hungUntil)
        return std::nullopt;
    return state.reading;
}

WindowReading AccessibleWindows::last(int processIdentifier) const {
    const std::lock_guard lock(shared_->mutex);
    const auto found = shared_->processes.find(processIdentifier);
    return found == shared_->processes.end() ? WindowReading() : found->second.reading;
}

std::optional<AccessiblePrograms> AccessibleWindows::readAll(std::chrono::milliseconds patience) {
    std::unique_lock lock(shared_->mutex);
    if (!shared_->isAvailable)
        return std::nullopt;
    const std::uint64_t ticket = ++shared_->allAsked;
    lock.unlock();
    listener_->askAll(ticket);
    lock.lock();
    const bool inTime = shared_->changed.wait_for(
        lock, patience, [&] { return shared_->allAnswered >= ticket || !shared_->isAvailable; });
    if (!inTime || !shared_->isAvailable)
        return std::nullopt;
    return shared_->programs();
}

void AccessibleWindows::refresh() {
    std::unique_lock lock(shared_->mutex);
    const auto now = Clock::now();
    if (!shared_->isAvailable || now - shared_->refreshedAt < searchPause)
        return;
    shared_->refreshedAt = now;
    const std::uint64_t ticket = ++shared_->allAsked;
    lock.unlock();
    listener_->askAll(ticket);
}

AccessiblePrograms AccessibleWindows::lastOfAll() const {
    const std::lock_guard lock(shared_->mutex);
    return shared_->isAvailable ? shared_->programs() : AccessiblePrograms();
}

void AccessibleWindows::follow(std::function<void()> changed) {
    const std::lock_guard lock(shared_->mutex);
    shared_->follower = std::move(changed);
}

} // namespace mnemora::atspi
