#include "Linux/Wayland/SessionWindows.h"

#include "Linux/Wayland/UnheardPrograms.h"

#include <algorithm>
#include <set>
#include <string>
#include <utility>

namespace mnemora::wayland {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using desktop::DisplayState;
using desktop::Wanted;

constexpr auto patienceAtStart = 1s;

std::chrono::milliseconds until(Clock::time_point deadline) {
    return std::max(0ms, std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()));
}

/// The executables of those whose windows are known.
std::set<std::string> heardIn(const SessionFacts& facts) {
    std::set<std::string> heard;
    for (const auto& program : facts.programs)
        heard.insert(program.process.executable);
    if (facts.server.stack)
        for (const auto& window : facts.server.stack->windows)
            heard.insert(window.front.identity.process.executable);
    return heard;
}

} // namespace

SessionWindows::SessionWindows(Options options)
    : options_(std::move(options)), merge_(*options_.catalogue),
      server_(x11::FrontWindowWatcher::start(options_.changed)),
      kwin_(options_.listener == nullptr
                ? nullptr
                : std::make_unique<KWinWindows>(*options_.listener, options_.changed)),
      compositor_({.idleAfter = options_.idleAfter, .changed = options_.changed}) {
    if (options_.changed)
        options_.accessible->follow(options_.changed);
    compositor_.waitUntilKnown(patienceAtStart);
}

SessionWindows::~SessionWindows() {
    options_.accessible->follow({});
}

std::optional<DisplayState> SessionWindows::read(std::chrono::milliseconds patience,
                                                 Wanted wanted) {
    const auto deadline = Clock::now() + patience;
    auto compositor = compositor_.read(patience);
    if (!compositor ||
        !addKWin(*compositor,
                 kwin_ && !compositor->windows ? kwin_->read(until(deadline)) : KWinState()))
        return std::nullopt;
    DisplayState server;
    if (server_) {
        auto read = server_->read(until(deadline), wanted);
        if (!read && until(deadline) == 0ms)
            return std::nullopt; // it may hide what is in front
        server = read ? *std::move(read) : DisplayState();
    }
    if (compositor->windows || !options_.accessible->isAvailable())
        return merged(*compositor, std::move(server), options_.accessible->lastOfAll(), wanted);
    auto programs = options_.accessible->readAll(until(deadline));
    if (!programs)
        return std::nullopt;
    return merged(*compositor, std::move(server), *std::move(programs), wanted);
}

DisplayState SessionWindows::last() const {
    auto compositor = compositor_.last();
    if (!compositor.isConnected ||
        !addKWin(compositor, kwin_ && !compositor.windows ? kwin_->last() : KWinState()))
        return {};
    auto state = merged(compositor, server_ ? server_->last() : DisplayState(),
                        options_.accessible->lastOfAll(), {});
    const std::lock_guard lock(mutex_);
    state.clients = clients_;
    return state;
}

// Where the compositor lists no windows by its own protocol, its script may.
bool SessionWindows::addKWin(CompositorState& compositor,
                             const std::optional<KWinState>& kwin) const {
    if (!kwin)
        return false;
    if (!compositor.windows)
        compositor.windows = kwin->windows;
    compositor.changes += kwin->changes;
    compositor.changedAt = std::max(compositor.changedAt, kwin->changedAt);
    return true;
}

DisplayState SessionWindows::merged(const CompositorState& compositor, DisplayState server,
                                    atspi::AccessiblePrograms programs, Wanted wanted) const {
    DisplayState state;
    state.isCovered = compositor.isAway;
    state.changes = compositor.changes + server.changes + programs.changes;
    state.changedAt = std::max({compositor.changedAt, server.changedAt, programs.changedAt});
    const SessionFacts facts{compositor.windows, std::move(server), std::move(programs.programs)};
    state.front = merge_.front(facts);
    if (state.front && state.front->identity.process.processIdentifier == 0)
        options_.accessible->refresh(); // for the next reading
    if (wanted.clients) {
        state.clients = merge_.clients(facts);
        const std::lock_guard lock(mutex_);
        clients_ = state.clients;
    }
    // With neither of the two nobody knows which windows there are.
    const auto areTold = [&] {
        return options_.accessible->isAvailable() && !runsUnheardProgram(heardIn(facts));
    };
    if (wanted.stack && (facts.listed || areTold()))
        state.stack = merge_.stack(facts);
    return state;
}

} // namespace mnemora::wayland
