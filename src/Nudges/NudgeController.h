#pragma once
// Now and then a small card tells the user how much was captured and invites a question about the
// day. The rules are a function of values; the controller brings them their facts and shows the
// card.

#include "Platform/MainLoop.h"
#include "Platform/Panel.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace mnemora {

class MnemoraStore;

/// What is remembered between cards.
struct NudgeState {
    /// Number of events at the last card, or at the first start.
    std::int64_t baseline = 0;
    /// The local day ("2026-11-16") that `count` belongs to; absent before the first evaluation.
    std::optional<std::string> day;
    /// Cards shown on that day.
    std::int64_t count = 0;
    /// When the last card was shown, seconds since the Unix epoch; 0: never.
    double last = 0;

    bool operator==(const NudgeState&) const = default;
};

/// The rules' answer.
struct NudgeDecision {
    /// How many events the card tells of; absent: no card.
    std::optional<std::int64_t> newCount;
    /// What to remember; where there is a card, once it is on screen.
    NudgeState state;

    bool operator==(const NudgeDecision&) const = default;
};

/// When a card is due.
struct NudgeRules {
    static constexpr std::int64_t maxPerDay = 3;
    static constexpr double minGap = 14400.0; // seconds
    static constexpr std::int64_t minNew = 30;
    static constexpr std::chrono::seconds interval{1200};
    static constexpr std::chrono::seconds visibleFor{12};

    /// `today` is the local day of `now`. `total` counts all events and is asked only when
    /// everything else allows a card, because counting reads the whole index.
    [[nodiscard]] static NudgeDecision decide(NudgeState state, double now,
                                              const std::string& today,
                                              const std::function<std::int64_t()>& total);
};

/// The card that tells of `newCount` events; `clicked` is called for a click on it.
[[nodiscard]] Card nudgeCard(std::int64_t newCount, std::function<void()> clicked);

/// Made and started once by the application delegate; held by a shared pointer. Main thread.
class NudgeController : public std::enable_shared_from_this<NudgeController> {
  public:
    /// `store` outlives the controller. Shows nothing yet.
    explicit NudgeController(MnemoraStore& store);

    /// The first start ever takes what is stored as already told of. Then a card is considered
    /// every 20 minutes, for the first time in 20 minutes.
    void start();

  private:
    void evaluate();
    [[nodiscard]] std::int64_t totalMemories() const;
    void show(std::int64_t newCount);
    void dismiss();
    static void openClaude();

    MnemoraStore& store_;
    std::unique_ptr<Timer> timer_;
    std::unique_ptr<Panel> window_; // while a card is on screen
    std::unique_ptr<Timer> dismissWork_;
};

} // namespace mnemora
