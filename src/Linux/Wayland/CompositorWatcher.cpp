#include "Linux/Wayland/CompositorWatcher.h"

#include "Linux/Wayland/Presence.h"
#include "Linux/Wayland/Toplevels.h"
#include "Log.h"

#include <poll.h>
#include <string>
#include <sys/eventfd.h>
#include <utility>

namespace mnemora::wayland {
namespace {

using namespace std::chrono_literals;

// A compositor answers within a frame or so.
constexpr auto patience = 200ms;
constexpr auto retryPause = 1s;

} // namespace

CompositorWatcher::CompositorWatcher(Options options)
    : options_(std::move(options)), wakeUp_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      thread_([this] { run(); }) {}

CompositorWatcher::~CompositorWatcher() {
    {
        const std::lock_guard lock(mutex_);
        isEnding_ = true;
    }
    wake();
    thread_.join();
}

void CompositorWatcher::wake() const {
    [[maybe_unused]] const int result = eventfd_write(wakeUp_.get(), 1);
}

bool CompositorWatcher::isEnding() const {
    const std::lock_guard lock(mutex_);
    return isEnding_;
}

std::optional<CompositorState> CompositorWatcher::read(std::chrono::milliseconds longest) {
    std::unique_lock lock(mutex_);
    const std::uint64_t ticket = ++asked_;
    wake();
    const bool inTime = served_.wait_for(
        lock, longest, [&] { return answered_ >= ticket || (isKnown_ && !last_.isConnected); });
    if (!inTime || !last_.isConnected)
        return std::nullopt;
    return last_;
}

CompositorState CompositorWatcher::last() const {
    const std::lock_guard lock(mutex_);
    return last_;
}

void CompositorWatcher::waitUntilKnown(std::chrono::milliseconds longest) const {
    std::unique_lock lock(mutex_);
    served_.wait_for(lock, longest, [&] { return isKnown_; });
}

void CompositorWatcher::run() {
    while (!isEnding()) {
        connect();
        if (connection_)
            serve();
        if (isEnding())
            break;
        // Also after a loss: one that lets go of everybody at once is not asked without end.
        pollfd wakeUp = {wakeUp_.get(), POLLIN, 0};
        const auto pause = std::chrono::milliseconds(retryPause).count();
        if (poll(&wakeUp, 1, static_cast<int>(pause)) > 0) {
            eventfd_t ignored = 0;
            eventfd_read(wakeUp_.get(), &ignored);
        }
    }
    toplevels_.reset();
    presence_.reset();
    connection_.reset();
}

void CompositorWatcher::connect() {
    std::string reason;
    connection_ = Connection::open(&reason);
    if (!connection_) {
        if (!std::exchange(isLost_, true))
            logError("no compositor: " + reason);
        const std::lock_guard lock(mutex_);
        isKnown_ = true;
        served_.notify_all();
        return;
    }
    toplevels_ = Toplevels::create(*connection_);
    presence_ = std::make_unique<Presence>(*connection_, options_.idleAfter);
    // The first brings the windows, the second their descriptions.
    for (int i = 0; i < 2; ++i)
        if (!connection_->roundtrip(retryPause))
            return lose();
    if (std::exchange(isLost_, false))
        logInfo("the compositor is there again");
    seen_ = 0;
    publish(std::nullopt);
}

void CompositorWatcher::lose() {
    toplevels_.reset();
    presence_.reset();
    connection_.reset();
    if (!std::exchange(isLost_, true))
        logError("the compositor has gone: its windows can't be told until it is back");
    {
        const std::lock_guard lock(mutex_);
        const auto changes = last_.changes + 1;
        last_ = {.changes = changes, .changedAt = std::chrono::steady_clock::now()};
        isKnown_ = true;
    }
    served_.notify_all();
    if (options_.changed)
        options_.changed();
}

// Until the compositor goes or it is time to end.
void CompositorWatcher::serve() {
    while (connection_ && !isEnding()) {
        eventfd_t ignored = 0;
        eventfd_read(wakeUp_.get(), &ignored);
        std::unique_lock lock(mutex_);
        const std::uint64_t ticket = asked_;
        const bool isAsked = ticket > answered_;
        lock.unlock();
        const bool isAnswered = isAsked && connection_->roundtrip(patience);
        if (!connection_->isAlive())
            return lose();
        publish(isAnswered ? std::optional(ticket) : std::nullopt);
        if ((!isAsked || isAnswered) && !connection_->dispatch(-1ms, wakeUp_.get()))
            return lose();
        publish(std::nullopt);
    }
}

void CompositorWatcher::publish(std::optional<std::uint64_t> ticket) {
    const bool listsWindows = toplevels_ && !toplevels_->isFinished();
    const std::uint64_t seen = toplevels_ ? toplevels_->changes() + 1 : 1;
    std::unique_lock lock(mutex_);
    const bool hasChanged = !last_.isConnected || seen != std::exchange(seen_, seen) ||
                            last_.isAway != presence_->isAway();
    last_.isConnected = true;
    last_.isAway = presence_->isAway();
    last_.windows = listsWindows ? std::optional(toplevels_->windows()) : std::nullopt;
    if (hasChanged) {
        ++last_.changes;
        last_.changedAt = std::chrono::steady_clock::now();
    }
    if (ticket)
        answered_ = *ticket;
    isKnown_ = true;
    lock.unlock();
    served_.notify_all();
    if (hasChanged && options_.changed)
        options_.changed();
}

} // namespace mnemora::wayland
