#include "Linux/Accessibility/AccessibleWindows.h"

#include "Linux/Accessibility/AccessibilityBus.h"
#include "Linux/Desktop/GLibThread.h"
#include "Linux/Desktop/ProcessFacts.h"

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

namespace mnemora::atspi {
namespace {

using Clock = std::chrono::steady_clock;

// A program that let a call time out isn't asked again for this long.
constexpr auto hungPause = std::chrono::seconds(20);
// The registry is asked for new programs at most this often when a process isn't known.
constexpr auto searchPause = std::chrono::seconds(2);

/// The windows of one program while they are being asked.
struct Survey {
    struct Window {
        std::optional<std::string> name;
        bool isActive = false;
    };
    std::vector<Window> windows;
    std::size_t pending = 0;
};

/// What is known of a process and who waits for more.
struct ProcessState {
    WindowReading reading;
    Clock::time_point hungUntil;
    std::uint64_t asked = 0;
    std::uint64_t answered = 0;
};

WindowReading readingOf(const std::vector<Survey::Window>& windows) {
    const auto isActive = [](const Survey::Window& window) { return window.isActive; };
    const auto active = std::count_if(windows.begin(), windows.end(), isActive);
    WindowReading reading;
    if (active == 1)
        reading = {std::find_if(windows.begin(), windows.end(), isActive)->name, true};
    // Some toolkits never set the state; a single window is the one all the same.
    else if (active == 0 && windows.size() == 1)
        reading = {windows.front().name, false};
    for (const Survey::Window& window : windows)
        if (window.name)
            reading.names.push_back(*window.name);
    reading.areAllNamesKnown =
        reading.names.size() == windows.size() && windows.size() < AccessibilityBus::maxChildren;
    return reading;
}

} // namespace

struct AccessibleWindows::Shared {
    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    bool isKnown = false;                  // guarded by mutex
    bool isAvailable = false;              // guarded by mutex
    std::map<int, ProcessState> processes; // guarded by mutex

    void forgetReadings();
};

void AccessibleWindows::Shared::forgetReadings() {
    for (auto& [process, state] : processes)
        state.reading = WindowReading();
}

/// Lives on the thread; its callbacks run there only, and no more once the thread has ended.
class AccessibleWindows::Listener {
  public:
    explicit Listener(std::shared_ptr<Shared> shared);

    /// Asks the process and publishes the answer under the ticket.
    void ask(int process, std::uint64_t ticket);

  private:
    struct Program {
        int process = 0;
        std::string sandbox; // of the proxy that speaks for it
    };

    void setAvailable(bool available);
    void search(std::function<void()> done);
    void learn(const ObjectName& object, std::function<void()> done);
    [[nodiscard]] std::optional<std::string> serviceOf(int process) const;
    void survey(const std::string& service, int process, std::uint64_t ticket);
    void askWindows(const std::vector<ObjectName>& windows, int process, std::uint64_t ticket);
    void publish(int process, WindowReading reading, std::uint64_t ticket);
    void setHung(int process, std::uint64_t ticket);
    void forget(const std::string& service);

    std::shared_ptr<Shared> shared_;
    AccessibilityBus bus_;
    std::map<std::string, Program> programs_;
    Clock::time_point lastSearch_;
    desktop::GLibThread thread_{"accessibility"}; // last: it uses all of the above
};

AccessibleWindows::Listener::Listener(std::shared_ptr<Shared> shared)
    : shared_(std::move(shared)),
      bus_({.connected = [this] { search([this] { setAvailable(true); }); },
            .disconnected =
                [this] {
                    programs_.clear();
                    setAvailable(false);
                },
            .windowsChanged =
                [this](const std::string& service) {
                    learn({service, {}}, [this, service] {
                        if (const auto known = programs_.find(service); known != programs_.end())
                            survey(service, known->second.process, 0);
                    });
                },
            .left = [this](const std::string& service) { forget(service); }}) {
    thread_.invoke([this] { bus_.start(); });
}

void AccessibleWindows::Listener::setAvailable(bool available) {
    const std::lock_guard lock(shared_->mutex);
    shared_->isKnown = true;
    shared_->isAvailable = available;
    if (!available)
        shared_->forgetReadings();
    shared_->changed.notify_all();
}

void AccessibleWindows::Listener::search(std::function<void()> done) {
    lastSearch_ = Clock::now();
    bus_.programs([this, done = std::move(done)](const std::vector<ObjectName>& found) {
        const auto left = std::make_shared<std::size_t>(found.size() + 1);
        const auto finish = [left, done] {
            if (--*left == 0)
                done();
        };
        for (const ObjectName& program : found)
            learn(program, finish);
        finish();
    });
}

void AccessibleWindows::Listener::learn(const ObjectName& object, std::function<void()> done) {
    if (programs_.contains(object.service) || bus_.connection() == nullptr)
        return done();
    bus_.process(object.service, [this, service = object.service, done](int process) {
        if (process > 0)
            programs_[service] = {process, desktop::sandboxInstance(process)};
        done();
    });
}

std::optional<std::string> AccessibleWindows::Listener::serviceOf(int process) const {
    for (const auto& [service, program] : programs_)
        if (program.process == process)
            return service;
    const std::string sandbox = desktop::sandboxInstance(process);
    for (const auto& [service, program] : programs_)
        if (!sandbox.empty() && program.sandbox == sandbox)
            return service;
    return std::nullopt;
}

// Most programs without a word on the bus never say one, so nobody waits for the search: what it
// finds is there for the next question.
void AccessibleWindows::Listener::ask(int process, std::uint64_t ticket) {
    thread_.invoke([this, process, ticket] {
        if (const auto service = serviceOf(process))
            return survey(*service, process, ticket);
        publish(process, WindowReading(), ticket);
        if (bus_.connection() == nullptr || Clock::now() - lastSearch_ < searchPause)
            return;
        search([this, process] {
            if (const auto service = serviceOf(process))
                survey(*service, process, 0);
        });
    });
}

void AccessibleWindows::Listener::survey(const std::string& service, int process,
                                         std::uint64_t ticket) {
    constexpr const char* root = "/org/a11y/atspi/accessible/root";
    if (bus_.connection() == nullptr)
        return publish(process, WindowReading(), ticket);
    bus_.children({service, root}, [this, process, ticket](const auto* windows, bool timedOut) {
        if (windows != nullptr)
            return askWindows(*windows, process, ticket);
        if (timedOut)
            return setHung(process, ticket);
        publish(process, WindowReading(), ticket);
    });
}

void AccessibleWindows::Listener::askWindows(const std::vector<ObjectName>& windows, int process,
                                             std::uint64_t ticket) {
    if (windows.empty() || bus_.connection() == nullptr)
        return publish(process, WindowReading(), ticket);
    const auto survey = std::make_shared<Survey>();
    survey->windows.resize(windows.size());
    survey->pending = 2 * windows.size();
    const auto finish = [this, survey, process, ticket] {
        if (--survey->pending == 0)
            publish(process, readingOf(survey->windows), ticket);
    };
    for (std::size_t i = 0; i < windows.size(); ++i) {
        bus_.name(windows[i], [survey, i, finish](const std::string* name) {
            if (name != nullptr)
                survey->windows[i].name = *name;
            finish();
        });
        bus_.isActive(windows[i], [survey, i, finish](bool isActive) {
            survey->windows[i].isActive = isActive;
            finish();
        });
    }
}

void AccessibleWindows::Listener::publish(int process, WindowReading reading,
                                          std::uint64_t ticket) {
    const std::lock_guard lock(shared_->mutex);
    ProcessState& state = shared_->processes[process];
    state.reading = std::move(reading);
    state.answered = std::max(state.answered, ticket);
    shared_->changed.notify_all();
}

// What was heard before stays: the title of a program that hangs doesn't change.
void AccessibleWindows::Listener::setHung(int process, std::uint64_t ticket) {
    const std::lock_guard lock(shared_->mutex);
    ProcessState& state = shared_->processes[process];
    state.hungUntil = Clock::now() + hungPause;
    state.answered = std::max(state.answered, ticket);
    shared_->changed.notify_all();
}

void AccessibleWindows::Listener::forget(const std::string& service) {
    const auto known = programs_.find(service);
    if (known == programs_.end())
        return;
    const std::lock_guard lock(shared_->mutex);
    const auto state = shared_->processes.find(known->second.process);
    if (state != shared_->processes.end() && state->second.asked == state->second.answered)
        shared_->processes.erase(state);
    programs_.erase(known);
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

} // namespace mnemora::atspi
