#pragma once
// What AccessibleWindows is made of: what is known of other programs, and who asks them.

#include "Linux/Accessibility/AccessibilityBus.h"
#include "Linux/Accessibility/AccessibleWindows.h"
#include "Linux/Desktop/GLibThread.h"

#include <condition_variable>
#include <map>
#include <mutex>
#include <set>

namespace mnemora::atspi {

using Clock = std::chrono::steady_clock;

// The registry is asked for new programs at most this often when a process isn't known.
constexpr auto searchPause = std::chrono::seconds(2);

/// What a survey is made for.
struct Question {
    int process = 0;
    std::uint64_t ticket = 0; // 0 where nobody waits
    std::uint64_t turn = 0;   // higher for a survey that began later
};

/// What is known of a process and who waits for more.
struct ProcessState {
    desktop::ProcessFacts facts;
    WindowReading reading;
    bool isOnBus = false;
    Clock::time_point hungUntil;
    std::uint64_t asked = 0;
    std::uint64_t answered = 0;
    std::uint64_t turn = 0; // of the survey that the reading is from
};

/// What both sides know: the bus's thread writes, any thread reads.
struct AccessibleWindows::Shared {
    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    bool isKnown = false;                  // guarded by mutex
    bool isAvailable = false;              // guarded by mutex
    std::map<int, ProcessState> processes; // guarded by mutex
    std::uint64_t allAsked = 0;            // guarded by mutex
    std::uint64_t allAnswered = 0;         // guarded by mutex
    std::uint64_t changes = 0;             // guarded by mutex
    Clock::time_point changedAt;           // guarded by mutex
    Clock::time_point refreshedAt;         // guarded by mutex
    std::function<void()> follower;        // guarded by mutex

    void forgetReadings();
    /// Those without a word that nobody waits for, once there are many; with `mutex` held.
    void forgetSilent();
    [[nodiscard]] AccessiblePrograms programs() const; // with `mutex` held
    void tellChange();
};

/// Lives on the thread; its callbacks run there only, and no more once the thread has ended.
class AccessibleWindows::Listener {
  public:
    explicit Listener(std::shared_ptr<Shared> shared);

    /// Asks the process and publishes the answer under the ticket.
    void ask(int process, std::uint64_t ticket);
    /// Asks all programs and publishes under the ticket that all have answered.
    void askAll(std::uint64_t ticket);

  private:
    struct Program {
        int process = 0;
        std::string sandbox;     // of the proxy that speaks for it
        bool isSurveyed = false; // because of what it announced
        bool hasNews = false;    // announced something since
    };

    void setAvailable(bool available);
    void search(std::function<void()> done);
    void windowsChanged(const std::string& service);
    void surveyed(const std::string& service);
    void learn(const ObjectName& object, std::function<void()> done);
    [[nodiscard]] std::optional<std::string> serviceOf(int process) const;
    /// What is called once a survey has been published.
    using Done = std::function<void()>;
    void survey(const std::string& service, int process, std::uint64_t ticket,
                const Done& done = {});
    void askWindows(const std::vector<ObjectName>& windows, Question question, const Done& done);
    void surveyAll(const Done& done);
    [[nodiscard]] bool isHung(int process) const;
    void publish(Question question, WindowReading reading);
    void setHung(Question question);
    void forget(const std::string& service);

    std::shared_ptr<Shared> shared_;
    AccessibilityBus bus_;
    std::map<std::string, Program> programs_;
    std::set<std::string> learning_; // who has announced something and isn't among programs_ yet
    std::uint64_t turns_ = 0;
    Clock::time_point lastSearch_;
    desktop::GLibThread thread_{"accessibility"}; // last: it uses all of the above
};

} // namespace mnemora::atspi
