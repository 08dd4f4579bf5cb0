#include "Linux/Accessibility/ProgramListener.h"

#include "Capture/Privacy.h"

#include <algorithm>
#include <utility>

namespace mnemora::atspi {
namespace {

// A program that let a call time out isn't asked again for this long, unless it speaks by itself.
// With the call's own time it is less than two ticks.
constexpr auto hungPause = std::chrono::seconds(10);

/// The windows of one program while they are being asked.
struct Survey {
    struct Window {
        std::optional<std::string> name;
        bool isActive = false;
    };
    std::vector<Window> windows;
    std::size_t pending = 0;
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

bool hasWithheldName(const WindowReading& reading) {
    return std::any_of(reading.names.begin(), reading.names.end(), [](const std::string& name) {
        return Privacy::shouldRedact(std::nullopt, name);
    });
}

} // namespace

AccessibleWindows::Listener::Listener(std::shared_ptr<Shared> shared)
    : shared_(std::move(shared)),
      bus_({.connected =
                [this] {
                    search([this] {
                        setAvailable(true);
                        surveyAll([this] { shared_->tellChange(); });
                    });
                },
            .disconnected =
                [this] {
                    programs_.clear();
                    setAvailable(false);
                },
            .windowsChanged = [this](const std::string& service) { windowsChanged(service); },
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

// However much a program announces, it has one survey to answer, and one more after that.
void AccessibleWindows::Listener::windowsChanged(const std::string& service) {
    const auto known = programs_.find(service);
    if (known == programs_.end()) {
        if (learning_.insert(service).second)
            learn({service, {}}, [this, service] {
                learning_.erase(service);
                if (programs_.contains(service))
                    windowsChanged(service);
            });
        return;
    }
    Program& program = known->second;
    if (std::exchange(program.isSurveyed, true))
        program.hasNews = true;
    else
        survey(service, program.process, 0, [this, service] { surveyed(service); });
}

void AccessibleWindows::Listener::surveyed(const std::string& service) {
    shared_->tellChange();
    const auto known = programs_.find(service);
    if (known == programs_.end())
        return;
    known->second.isSurveyed = false;
    if (std::exchange(known->second.hasNews, false))
        windowsChanged(service);
}

void AccessibleWindows::Listener::learn(const ObjectName& object, std::function<void()> done) {
    if (programs_.contains(object.service) || bus_.connection() == nullptr)
        return done();
    bus_.process(object.service, [this, service = object.service, done](int process) {
        if (process > 0) {
            programs_[service] = {process, desktop::sandboxInstance(process)};
            auto facts = desktop::processFacts(process);
            facts.processIdentifier = process;
            const std::lock_guard lock(shared_->mutex);
            ProcessState& state = shared_->processes[process];
            state.facts = std::move(facts);
            state.isOnBus = true;
        }
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
        publish({process, ticket, ++turns_}, WindowReading());
        if (bus_.connection() == nullptr || Clock::now() - lastSearch_ < searchPause)
            return;
        search([this, process] {
            if (const auto service = serviceOf(process))
                survey(*service, process, 0);
        });
    });
}

bool AccessibleWindows::Listener::isHung(int process) const {
    const std::lock_guard lock(shared_->mutex);
    const auto state = shared_->processes.find(process);
    return state != shared_->processes.end() && Clock::now() < state->second.hungUntil;
}

void AccessibleWindows::Listener::surveyAll(const Done& done) {
    const auto left = std::make_shared<std::size_t>(programs_.size() + 1);
    const auto finish = [left, done] {
        if (--*left == 0)
            done();
    };
    const auto programs = programs_; // a survey may end at once, and with it a program
    for (const auto& [service, program] : programs)
        if (isHung(program.process))
            finish();
        else
            survey(service, program.process, 0, finish);
    finish();
}

// A program may have come to the bus with its window active already, and told nobody.
void AccessibleWindows::Listener::askAll(std::uint64_t ticket) {
    thread_.invoke([this, ticket] {
        const auto survey = [this, ticket] {
            surveyAll([this, ticket] {
                const std::lock_guard lock(shared_->mutex);
                shared_->allAnswered = std::max(shared_->allAnswered, ticket);
                shared_->changed.notify_all();
            });
        };
        if (bus_.connection() != nullptr && Clock::now() - lastSearch_ >= searchPause)
            search(survey);
        else
            survey();
    });
}

void AccessibleWindows::Listener::survey(const std::string& service, int process,
                                         std::uint64_t ticket, const Done& done) {
    constexpr const char* root = "/org/a11y/atspi/accessible/root";
    const auto end = [done] {
        if (done)
            done();
    };
    const Question question{process, ticket, ++turns_};
    if (bus_.connection() == nullptr) {
        publish(question, WindowReading());
        return end();
    }
    bus_.children({service, root}, [this, question, end](const auto* windows, bool timedOut) {
        if (windows != nullptr)
            return askWindows(*windows, question, end);
        if (timedOut)
            setHung(question);
        else
            publish(question, WindowReading());
        end();
    });
}

void AccessibleWindows::Listener::askWindows(const std::vector<ObjectName>& windows,
                                             Question question, const Done& done) {
    if (windows.empty() || bus_.connection() == nullptr) {
        publish(question, {.areAllNamesKnown = bus_.connection() != nullptr});
        return done();
    }
    const auto survey = std::make_shared<Survey>();
    survey->windows.resize(windows.size());
    survey->pending = 2 * windows.size();
    const auto finish = [this, survey, question, done] {
        if (--survey->pending != 0)
            return;
        publish(question, readingOf(survey->windows));
        done();
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

// A survey that a later one has overtaken brings nothing new.
void AccessibleWindows::Listener::publish(Question question, WindowReading reading) {
    const std::lock_guard lock(shared_->mutex);
    ProcessState& state = shared_->processes[question.process];
    if (state.turn < question.turn) {
        // Programs rename a window before they paint it.
        if (state.reading.names != reading.names &&
            (hasWithheldName(state.reading) || hasWithheldName(reading))) {
            ++shared_->changes;
            shared_->changedAt = Clock::now();
        }
        state.reading = std::move(reading);
        state.turn = question.turn;
        state.hungUntil = {};
    }
    state.answered = std::max(state.answered, question.ticket);
    shared_->changed.notify_all();
}

// What was heard before stays: the title of a program that hangs doesn't change. One that has
// answered a later question hangs no more.
void AccessibleWindows::Listener::setHung(Question question) {
    const std::lock_guard lock(shared_->mutex);
    ProcessState& state = shared_->processes[question.process];
    if (state.turn < question.turn)
        state.hungUntil = Clock::now() + hungPause;
    state.answered = std::max(state.answered, question.ticket);
    shared_->changed.notify_all();
}

void AccessibleWindows::Listener::forget(const std::string& service) {
    const auto known = programs_.find(service);
    if (known == programs_.end())
        return;
    {
        const std::lock_guard lock(shared_->mutex);
        const auto state = shared_->processes.find(known->second.process);
        if (state != shared_->processes.end()) {
            state->second.isOnBus = false;
            if (state->second.asked == state->second.answered)
                shared_->processes.erase(state);
        }
        programs_.erase(known);
    }
    shared_->tellChange();
}

} // namespace mnemora::atspi
