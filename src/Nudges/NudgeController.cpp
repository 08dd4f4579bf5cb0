#include "Nudges/NudgeController.h"

#include "Platform/CoreServices.h"
#include "Platform/DesktopServices.h"
#include "Store/MnemoraStore.h"

#include <utility>

namespace mnemora {
namespace {

using namespace std::chrono_literals;

constexpr auto baselineKey = "nudge.baseline";
constexpr auto dayKey = "nudge.day";
constexpr auto countKey = "nudge.count";
constexpr auto lastKey = "nudge.last";

// "Use Mnemora to tell me what I worked on today." in a new conversation.
constexpr auto claudeAddress =
    "https://claude.ai/new"
    "?q=Use%20Mnemora%20to%20tell%20me%20what%20I%20worked%20on%20today.";

NudgeState readState(const UserDefaults& defaults) {
    return {.baseline = defaults.integer(baselineKey),
            .day = defaults.text(dayKey),
            .count = defaults.integer(countKey),
            .last = defaults.real(lastKey)};
}

void writeState(UserDefaults& defaults, const NudgeState& state) {
    if (state.day)
        defaults.set(dayKey, *state.day);
    defaults.set(countKey, state.count);
    defaults.set(lastKey, state.last);
    defaults.set(baselineKey, state.baseline);
}

} // namespace

NudgeDecision NudgeRules::decide(NudgeState state, double now, const std::string& today,
                                 const std::function<std::int64_t()>& total) {
    if (state.day != today) {
        state.day = today;
        state.count = 0;
    }
    if (state.count >= maxPerDay)
        return {.newCount = {}, .state = state};
    if (state.last > 0 && now - state.last < minGap)
        return {.newCount = {}, .state = state};
    const std::int64_t all = total();
    std::int64_t fresh = 0;
    // A settings file can hold any baseline.
    if (__builtin_sub_overflow(all, state.baseline, &fresh) || fresh < minNew)
        return {.newCount = {}, .state = state};
    state.last = now;
    ++state.count;
    state.baseline = all;
    return {.newCount = fresh, .state = state};
}

Card nudgeCard(std::int64_t newCount, std::function<void()> clicked) {
    Card card;
    card.iconSize = 22;
    card.message = "While you worked, I captured " + std::to_string(newCount) +
                   " new things.\nAsk Claude what you did ↗";
    card.margins = {.top = 12, .left = 14, .bottom = 12, .right = 16};
    card.background.alpha = 0.96;
    card.corner = CardCorner::bottomRight;
    card.clicked = std::move(clicked);
    card.fadeIn = 250ms;
    card.fadeOut = 200ms;
    return card;
}

NudgeController::NudgeController(MnemoraStore& store) : store_(store) {}

void NudgeController::start() {
    const auto& services = desktopServices();
    if (!services.defaults || !services.mainLoop)
        return;
    if (!services.defaults->value(baselineKey))
        services.defaults->set(baselineKey, totalMemories());
    timer_ = services.mainLoop->every(NudgeRules::interval, [weak = weak_from_this()] {
        if (const auto self = weak.lock())
            self->evaluate();
    });
}

void NudgeController::evaluate() {
    if (window_)
        return;
    auto& defaults = *desktopServices().defaults;
    const Clock& clock = *coreServices().clock;
    const double now = clock.now();
    const auto before = readState(defaults);
    const auto decision = NudgeRules::decide(before, now, clock.format(now, "yyyy-MM-dd"),
                                             [this] { return totalMemories(); });
    if (decision.newCount)
        show(*decision.newCount);
    auto after = decision.state;
    if (decision.newCount && !window_) { // nowhere to show it: the next one tells of these too
        after = before;
        after.day = decision.state.day;
        after.count = decision.state.count - 1;
    }
    if (after != before)
        writeState(defaults, after);
}

std::int64_t NudgeController::totalMemories() const {
    const auto counts = store_.query("SELECT count(*) FROM events;", {},
                                     [](const RowReader& row) { return row.integer(0); });
    return counts.empty() ? 0 : counts.front();
}

void NudgeController::show(std::int64_t newCount) {
    const auto& services = desktopServices();
    if (!services.panels)
        return;
    window_ = services.panels->show(nudgeCard(newCount, [weak = weak_from_this()] {
        if (const auto self = weak.lock()) {
            openClaude();
            self->dismiss();
        }
    }));
    if (!window_)
        return;
    dismissWork_ = services.mainLoop->after(NudgeRules::visibleFor, [weak = weak_from_this()] {
        if (const auto self = weak.lock())
            self->dismiss();
    });
}

void NudgeController::dismiss() {
    dismissWork_.reset();
    window_.reset();
}

void NudgeController::openClaude() {
    if (const auto& workspace = desktopServices().workspace)
        workspace->open(claudeAddress);
}

} // namespace mnemora
