#include "Linux/X11/FrontWindowWatcher.h"

#include <algorithm>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace mnemora::x11 {

using desktop::DisplayState;
using desktop::FrontWindow;
using desktop::Wanted;
using desktop::WindowIdentity;

std::unique_ptr<FrontWindowWatcher> FrontWindowWatcher::start(std::function<void()> changed,
                                                              std::string* reason) {
    auto connection = Connection::open(reason);
    if (!connection)
        return nullptr;
    FileDescriptor wakeUp(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!wakeUp) {
        if (reason != nullptr)
            *reason = "no descriptor is left";
        return nullptr;
    }
    return std::unique_ptr<FrontWindowWatcher>(
        new FrontWindowWatcher(std::move(connection), std::move(wakeUp), std::move(changed)));
}

FrontWindowWatcher::FrontWindowWatcher(std::unique_ptr<Connection> connection,
                                       FileDescriptor wakeUp, std::function<void()> changed)
    : connection_(std::move(connection)), wakeUp_(std::move(wakeUp)), changed_(std::move(changed)),
      thread_([this] { run(); }) {}

FrontWindowWatcher::~FrontWindowWatcher() {
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
    }
    wake();
    // A server that is held or hangs would keep the thread in the middle of a request.
    shutdown(connection_->descriptor(), SHUT_RDWR);
    thread_.join();
}

void FrontWindowWatcher::wake() const {
    [[maybe_unused]] const int result = eventfd_write(wakeUp_.get(), 1);
}

std::optional<DisplayState> FrontWindowWatcher::read(std::chrono::milliseconds patience,
                                                     Wanted wanted) {
    std::unique_lock lock(mutex_);
    const std::uint64_t ticket = ++asked_;
    wanted_.clients = wanted_.clients || wanted.clients;
    wanted_.stack = wanted_.stack || wanted.stack;
    stackAwaited_ += wanted.stack ? 1 : 0;
    wake();
    const bool inTime =
        served_.wait_for(lock, patience, [&] { return answered_ >= ticket || gone_; });
    stackAwaited_ -= wanted.stack ? 1 : 0;
    if (!inTime || gone_)
        return std::nullopt;
    return last_;
}

DisplayState FrontWindowWatcher::last() const {
    const std::lock_guard lock(mutex_);
    return last_;
}

void FrontWindowWatcher::run() {
    connection_->followActiveWindow();
    while (serve())
        waitForWork();
}

// Answers everybody who has asked so far; false when it is time to end.
bool FrontWindowWatcher::serve() {
    eventfd_t ignored = 0;
    eventfd_read(wakeUp_.get(), &ignored);
    const bool changed = std::exchange(noticed_, false) || connection_->takeNotices();
    const bool isRetitled = connection_->takeTitleNotice();
    std::unique_lock lock(mutex_);
    if (ending_)
        return false;
    const std::uint64_t ticket = asked_;
    const bool isAsked = ticket > answered_;
    const Wanted wanted = std::exchange(wanted_, Wanted());
    lock.unlock();
    DisplayState state;
    if (changed || isAsked)
        state = readNow(wanted);
    else if (isRetitled)
        state = withTitleOfNow();
    countChanges(state);
    const bool isAlive = connection_->isAlive();
    lock.lock();
    if (!isAlive)
        state = DisplayState();
    else if (!wanted.clients)
        state.clients = last_.clients;
    // Who asked for the stack may not have woken yet, and would find it overwritten.
    if (isAlive && !wanted.stack && stackAwaited_ > 0)
        state.stack = last_.stack;
    if (changed || isAsked || isRetitled || !isAlive) {
        keepFormerTitles(state);
        last_ = std::move(state);
    }
    answered_ = ticket;
    gone_ = !isAlive;
    lock.unlock();
    served_.notify_all();
    if (changed && changed_)
        changed_();
    return isAlive;
}

// The server sends a notice before every answer that it gives afterwards, so what changed before
// the end of the reading is known once the reading is.
void FrontWindowWatcher::countChanges(DisplayState& state) {
    noticed_ = connection_->takeNotices();
    const auto changes = connection_->countChanges();
    if (std::exchange(changes_, changes) != changes)
        changedAt_ = std::chrono::steady_clock::now();
    state.changes = changes_;
    state.changedAt = changedAt_;
}

// A title that changes every moment costs one question each time, not a whole reading.
DisplayState FrontWindowWatcher::withTitleOfNow() const {
    DisplayState state = last();
    if (state.front)
        state.front->title = connection_->title(state.front->window);
    return state;
}

void FrontWindowWatcher::keepFormerTitles(DisplayState& state) const {
    constexpr auto kept = std::chrono::seconds(1);
    constexpr std::size_t mostKept = 16;
    const auto now = std::chrono::steady_clock::now();
    auto former = last_.formerTitles;
    std::erase_if(former, [&](const auto& title) { return now - title.until > kept; });
    const auto& before = last_.front;
    if (before && before->title && state.front && state.front->window == before->window &&
        state.front->title != before->title)
        former.push_back({*before->title, now});
    if (former.size() > mostKept)
        former.erase(former.begin());
    state.formerTitles = std::move(former);
}

void FrontWindowWatcher::waitForWork() {
    // Answers may have brought notices along; those leave nothing to read on the socket.
    noticed_ = connection_->takeNotices() || noticed_;
    if (noticed_ || connection_->mayHaveChanged() || !connection_->isAlive())
        return;
    pollfd sources[] = {{connection_->descriptor(), POLLIN, 0}, {wakeUp_.get(), POLLIN, 0}};
    poll(sources, std::size(sources), -1);
}

DisplayState FrontWindowWatcher::readNow(Wanted wanted) {
    DisplayState state;
    state.isCovered = connection_->isScreenCovered();
    if (const auto window = connection_->activeWindow()) {
        connection_->followTitle(*window);
        if (auto who = identity(*window))
            state.front = FrontWindow{*window, std::move(*who), connection_->title(*window)};
    }
    if (wanted.stack)
        state.stack = connection_->stack([this](Window window) { return identity(window); });
    if (!wanted.clients)
        return state;
    const auto clients = connection_->clients();
    std::erase_if(known_, [&](const auto& entry) {
        return std::find(clients.begin(), clients.end(), entry.first) == clients.end();
    });
    for (const Window window : clients)
        if (auto who = identity(window))
            state.clients.push_back(std::move(*who));
    return state;
}

// The marks are read each time, since a window's number may be given to another one; the files of
// its process only once.
std::optional<WindowIdentity> FrontWindowWatcher::identity(Window window) {
    auto who = connection_->identity(window);
    if (!who) {
        known_.erase(window);
        return std::nullopt;
    }
    const auto known = known_.find(window);
    const int process = who->process.processIdentifier;
    if (known != known_.end() && known->second.process.processIdentifier == process)
        who->process = desktop::upToDate(known->second.process);
    else
        who->process = desktop::processFacts(process);
    who->process.processIdentifier = process;
    constexpr std::size_t maxKnown = 256;
    if (known_.size() >= maxKnown)
        known_.clear();
    known_[window] = *who;
    return who;
}

} // namespace mnemora::x11
