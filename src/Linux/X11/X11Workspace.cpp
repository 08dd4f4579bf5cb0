#include "Linux/X11/X11Workspace.h"

#include "Linux/Desktop/AddressOpener.h"
#include "Linux/Desktop/ApplicationCatalogue.h"
#include "Linux/Desktop/SessionState.h"

#include <algorithm>
#include <utility>

namespace mnemora::x11 {
namespace {

using namespace std::chrono_literals;

// A reading takes about a millisecond; only a grabbed or hung server takes longer, and then the
// last one is as good as any, also for the questions that follow at once.
constexpr auto mainThreadPatience = 15ms;
constexpr auto lateness = 500ms;
// Most focus changes pass through "no active window"; one that lasts longer is meant.
constexpr auto absenceBound = 500ms;

constexpr std::string_view settingsScheme = "x-apple.systempreferences:";

} // namespace

struct X11Workspace::Observers {
    using Callback = std::function<void(const std::optional<RunningApplication>&)>;
    std::vector<std::shared_ptr<Callback>> callbacks;
};

namespace {

/// Takes its callback out of the list; the list may be gone before.
template <class Observers>
struct Registration : Observation {
    std::weak_ptr<Observers> observers;
    std::weak_ptr<typename Observers::Callback> callback;

    ~Registration() override {
        if (const auto list = observers.lock())
            std::erase(list->callbacks, callback.lock());
    }
};

} // namespace

std::shared_ptr<X11Workspace>
X11Workspace::create(std::shared_ptr<MainLoop> mainLoop,
                     std::shared_ptr<const desktop::ApplicationCatalogue> catalogue,
                     std::shared_ptr<const desktop::SessionState> session, std::string* reason) {
    std::shared_ptr<X11Workspace> workspace(
        new X11Workspace(mainLoop, std::move(catalogue), std::move(session)));
    workspace->watcher_ = FrontWindowWatcher::start(
        [mainLoop, weak = std::weak_ptr(workspace)] {
            mainLoop->post([weak] {
                if (const auto self = weak.lock())
                    self->activeWindowChanged();
            });
        },
        reason);
    return workspace->watcher_ ? workspace : nullptr;
}

X11Workspace::X11Workspace(std::shared_ptr<MainLoop> mainLoop,
                           std::shared_ptr<const desktop::ApplicationCatalogue> catalogue,
                           std::shared_ptr<const desktop::SessionState> session)
    : mainLoop_(std::move(mainLoop)), catalogue_(std::move(catalogue)),
      session_(std::move(session)), observers_(std::make_shared<Observers>()) {}

X11Workspace::~X11Workspace() = default;

RunningApplication X11Workspace::application(const desktop::WindowIdentity& identity) const {
    const auto known = catalogue_->application(identity);
    return {known.bundleIdentifier, known.name, identity.process.processIdentifier};
}

bool X11Workspace::isVisible(const DisplayState& state) const {
    return !state.isCovered && (!session_ || session_->isInFront());
}

std::optional<RunningApplication> X11Workspace::frontOf(const DisplayState& state) const {
    if (!state.front || !isVisible(state))
        return std::nullopt;
    return application(state.front->identity);
}

std::optional<RunningApplication> X11Workspace::lastFrontmostApplication() const {
    return frontOf(watcher_->last());
}

std::optional<desktop::FrontWindow> X11Workspace::lastFrontWindow() const {
    return watcher_->last().front;
}

std::optional<desktop::FrontWindow>
X11Workspace::freshFrontWindow(std::chrono::milliseconds patience) const {
    auto state = watcher_->read(patience);
    if (!state || !isVisible(*state))
        return std::nullopt;
    return std::move(state->front);
}

std::optional<desktop::WindowStack>
X11Workspace::freshStack(std::chrono::milliseconds patience) const {
    auto state = watcher_->read(patience, {.stack = true});
    if (!state || !isVisible(*state))
        return std::nullopt;
    return std::move(state->stack);
}

std::optional<desktop::WindowStack>
X11Workspace::settledStack(std::chrono::milliseconds patience) const {
    // A busy program takes some tenths of a second to paint what was uncovered, and compositors
    // fade windows out for as long.
    constexpr auto settling = std::chrono::milliseconds(400);
    auto state = watcher_->read(patience, {.stack = true});
    if (!state || !isVisible(*state) ||
        std::chrono::steady_clock::now() - state->changedAt < settling)
        return std::nullopt;
    return std::move(state->stack);
}

std::uint64_t X11Workspace::windowChanges() const {
    return watcher_->last().changes;
}

DisplayState X11Workspace::freshOrLast(Wanted wanted) {
    const auto now = std::chrono::steady_clock::now();
    const bool isLate = lateAt_ && now - *lateAt_ < lateness;
    auto state = watcher_->read(isLate ? 0ms : mainThreadPatience, wanted);
    if (state)
        lateAt_.reset();
    else if (!isLate)
        lateAt_ = now;
    return state ? std::move(*state) : watcher_->last();
}

std::optional<RunningApplication> X11Workspace::frontmostApplication() {
    return frontOf(freshOrLast({}));
}

std::unique_ptr<Observation> X11Workspace::observeActivation(
    std::function<void(const std::optional<RunningApplication>&)> activated) {
    auto callback = std::make_shared<Observers::Callback>(std::move(activated));
    auto registration = std::make_unique<Registration<Observers>>();
    registration->observers = observers_;
    registration->callback = callback;
    if (observers_->callbacks.empty())
        announced_ = frontOf(watcher_->last());
    observers_->callbacks.push_back(std::move(callback));
    return registration;
}

void X11Workspace::activeWindowChanged() {
    const auto front = frontOf(watcher_->last());
    if (front) {
        absence_.reset();
        if (announced_ != front)
            tell(*front);
    } else if (!absence_) {
        absence_ = mainLoop_->after(absenceBound, [weak = weak_from_this()] {
            if (const auto self = weak.lock())
                self->announced_.reset();
        });
    }
}

void X11Workspace::tell(const RunningApplication& application) {
    announced_ = application;
    const auto callbacks = observers_->callbacks; // one of them may end its registration
    for (const auto& callback : callbacks)
        (*callback)(application);
}

std::vector<RunningApplication>
X11Workspace::runningApplications(const std::string& bundleIdentifier) {
    const auto state = freshOrLast({.clients = true});
    std::vector<RunningApplication> running;
    for (const auto& client : state.clients) {
        auto candidate = application(client);
        if (candidate.bundleIdentifier == bundleIdentifier &&
            std::find(running.begin(), running.end(), candidate) == running.end())
            running.push_back(std::move(candidate));
    }
    return running;
}

bool X11Workspace::open(const std::string& address) {
    if (address.starts_with(settingsScheme))
        return openSettings_ && openSettings_(address);
    return desktop::openAddress(address);
}

} // namespace mnemora::x11
