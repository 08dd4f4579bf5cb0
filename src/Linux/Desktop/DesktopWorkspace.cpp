#include "Linux/Desktop/DesktopWorkspace.h"

#include "Capture/Privacy.h"
#include "Linux/Desktop/AddressOpener.h"
#include "Linux/Desktop/ApplicationCatalogue.h"
#include "Linux/Desktop/SessionState.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <utility>

namespace mnemora::desktop {
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

struct DesktopWorkspace::Observers {
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

std::shared_ptr<DesktopWorkspace>
DesktopWorkspace::create(std::shared_ptr<MainLoop> mainLoop,
                         std::shared_ptr<const ApplicationCatalogue> catalogue,
                         std::shared_ptr<const SessionState> session, const StartSource& start) {
    std::shared_ptr<DesktopWorkspace> workspace(
        new DesktopWorkspace(mainLoop, std::move(catalogue), std::move(session)));
    // However fast the windows change, one turn is waiting for the main loop.
    const auto isPosted = std::make_shared<std::atomic<bool>>(false);
    workspace->source_ = start([mainLoop, isPosted, weak = std::weak_ptr(workspace)] {
        if (isPosted->exchange(true))
            return;
        mainLoop->post([isPosted, weak] {
            *isPosted = false;
            if (const auto self = weak.lock())
                self->activeWindowChanged();
        });
    });
    return workspace->source_ ? workspace : nullptr;
}

DesktopWorkspace::DesktopWorkspace(std::shared_ptr<MainLoop> mainLoop,
                                   std::shared_ptr<const ApplicationCatalogue> catalogue,
                                   std::shared_ptr<const SessionState> session)
    : mainLoop_(std::move(mainLoop)), catalogue_(std::move(catalogue)),
      session_(std::move(session)), observers_(std::make_shared<Observers>()) {}

DesktopWorkspace::~DesktopWorkspace() = default;

RunningApplication DesktopWorkspace::application(const WindowIdentity& identity) const {
    const auto known = catalogue_->application(identity);
    return {known.bundleIdentifier, known.name, identity.process.processIdentifier};
}

bool DesktopWorkspace::isVisible(const DisplayState& state) const {
    return !state.isCovered && (!session_ || session_->isInFront());
}

std::optional<RunningApplication> DesktopWorkspace::frontOf(const DisplayState& state) const {
    if (!state.front || !isVisible(state))
        return std::nullopt;
    return application(state.front->identity);
}

std::optional<RunningApplication> DesktopWorkspace::lastFrontmostApplication() const {
    return frontOf(source_->last());
}

std::optional<FrontWindow> DesktopWorkspace::lastFrontWindow() const {
    return source_->last().front;
}

std::optional<FrontWindow>
DesktopWorkspace::freshFrontWindow(std::chrono::milliseconds patience) const {
    auto state = source_->read(patience);
    if (!state || !isVisible(*state))
        return std::nullopt;
    return std::move(state->front);
}

std::optional<WindowStack> DesktopWorkspace::freshStack(std::chrono::milliseconds patience) const {
    auto state = source_->read(patience, {.stack = true});
    if (!state || !isVisible(*state))
        return std::nullopt;
    return std::move(state->stack);
}

std::optional<WindowStack>
DesktopWorkspace::settledStack(std::chrono::milliseconds patience) const {
    // A busy program takes some tenths of a second to paint what was uncovered, and compositors
    // fade windows out for as long. Browsers change their title before they paint another tab.
    constexpr auto settling = std::chrono::milliseconds(400);
    auto state = source_->read(patience, {.stack = true});
    const auto now = std::chrono::steady_clock::now();
    if (!state || !isVisible(*state) || now - state->changedAt < settling)
        return std::nullopt;
    const auto& former = state->formerTitles;
    if (std::any_of(former.begin(), former.end(), [&](const FormerTitle& title) {
            return now - title.until < settling && Privacy::shouldRedact(std::nullopt, title.title);
        }))
        return std::nullopt;
    return std::move(state->stack);
}

std::uint64_t DesktopWorkspace::windowChanges() const {
    return source_->last().changes;
}

std::chrono::steady_clock::time_point DesktopWorkspace::windowsChangedAt() const {
    return source_->last().changedAt;
}

DisplayState DesktopWorkspace::freshOrLast(Wanted wanted) {
    const auto now = std::chrono::steady_clock::now();
    const bool isLate = lateAt_ && now - *lateAt_ < lateness;
    auto state = source_->read(isLate ? 0ms : mainThreadPatience, wanted);
    if (state)
        lateAt_.reset();
    else if (!isLate)
        lateAt_ = now;
    return state ? std::move(*state) : source_->last();
}

std::optional<RunningApplication> DesktopWorkspace::frontmostApplication() {
    return frontOf(freshOrLast({}));
}

std::unique_ptr<Observation> DesktopWorkspace::observeActivation(
    std::function<void(const std::optional<RunningApplication>&)> activated) {
    auto callback = std::make_shared<Observers::Callback>(std::move(activated));
    auto registration = std::make_unique<Registration<Observers>>();
    registration->observers = observers_;
    registration->callback = callback;
    if (observers_->callbacks.empty())
        announced_ = frontOf(source_->last());
    observers_->callbacks.push_back(std::move(callback));
    return registration;
}

void DesktopWorkspace::activeWindowChanged() {
    const auto front = frontOf(source_->last());
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

void DesktopWorkspace::tell(const RunningApplication& application) {
    announced_ = application;
    const auto callbacks = observers_->callbacks; // one of them may end its registration
    for (const auto& callback : callbacks)
        (*callback)(application);
}

std::vector<RunningApplication>
DesktopWorkspace::runningApplications(const std::string& bundleIdentifier) {
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

bool DesktopWorkspace::open(const std::string& address) {
    if (address.starts_with(settingsScheme))
        return openSettings_ && openSettings_(address);
    return openAddress(address);
}

} // namespace mnemora::desktop
