#include "Linux/Desktop/WithheldWindows.h"

#include "Capture/Privacy.h"
#include "Linux/Desktop/FocusedWindowTitles.h"
#include "Linux/Desktop/FrontContentGuard.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

namespace mnemora::desktop {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// Together the bound that the interface promises.
constexpr auto displayPatience = 60ms;
constexpr auto programsPatience = 40ms;

bool isOrdinaryChromium(const StackedFacts& facts, PrivateWindowMarkers& markers) {
    const auto& title = facts.window.front.title;
    const auto& reading = facts.reading;
    if (!title || !reading || !reading->areAllNamesKnown)
        return false;
    const ProcessFacts& process = facts.window.front.identity.process;
    bool isNamed = false;
    for (const std::string& name : reading->names) {
        if (!belongTogether(name, title))
            continue;
        if (Privacy::shouldRedact(std::nullopt, name) ||
            !markers.isOrdinaryChromium(name, reading->names, process.processIdentifier,
                                        process.executable))
            return false;
        isNamed = true;
    }
    return isNamed;
}

bool isOrdinaryWindow(const StackedFacts& facts, PrivateWindowMarkers& markers) {
    const auto& title = facts.window.front.title;
    const ProcessFacts& process = facts.window.front.identity.process;
    switch (facts.application.browser) {
    case Browser::None:
        return true;
    case Browser::Chromium:
        return isOrdinaryChromium(facts, markers);
    case Browser::WebKit:
        return !process.executable.empty() && !process.keepsNothing;
    case Browser::Firefox:
        return title && !process.keepsNothing &&
               isFirefoxBrowserWindow(facts.window.front.identity.instance) &&
               !PrivateWindowMarkers::marksFirefox(*title);
    case Browser::Unmarked:
        return false;
    }
    return false;
}

} // namespace

bool isWithheld(const StackedFacts& facts, PrivateWindowMarkers& markers) {
    const FrontWindow& window = facts.window.front;
    if (Privacy::shouldRedact(facts.application.bundleIdentifier, window.title))
        return true;
    if (window.window == 0)
        return false;
    if (facts.isActive && mayBeRead({window, facts.application, facts.reading}, markers))
        return false;
    return !isOrdinaryWindow(facts, markers);
}

std::vector<std::size_t> withUnmanaged(const WindowStack& stack,
                                       std::vector<std::size_t> withheld) {
    const auto processAt = [&](std::size_t index) {
        return stack.windows[index].front.identity.process.processIdentifier;
    };
    std::set<int> processes;
    for (const std::size_t index : withheld)
        processes.insert(processAt(index));
    processes.erase(0);
    for (std::size_t index = 0; index < stack.windows.size(); ++index)
        if (stack.windows[index].front.window == 0 && processes.contains(processAt(index)))
            withheld.push_back(index);
    std::sort(withheld.begin(), withheld.end());
    withheld.erase(std::unique(withheld.begin(), withheld.end()), withheld.end());
    return withheld;
}

Area visibleArea(const WindowStack& stack, const std::vector<std::size_t>& withheld) {
    Area all;
    for (const std::size_t index : withheld) {
        Area shown = {stack.windows[index].place};
        for (std::size_t above = index + 1; above < stack.windows.size(); ++above)
            for (const Rectangle& cover : stack.windows[above].cover)
                shown = without(shown, cover);
        all.insert(all.end(), shown.begin(), shown.end());
    }
    return all;
}

std::optional<Area> WithheldWindows::withheld() {
    const auto stack = stack_(displayPatience);
    if (!stack)
        return std::nullopt;
    const auto deadline = Clock::now() + programsPatience;
    std::map<int, std::optional<atspi::WindowReading>> readings;
    std::vector<std::size_t> found;
    for (std::size_t index = 0; index < stack->windows.size(); ++index) {
        const FrontWindow& window = stack->windows[index].front;
        StackedFacts facts{stack->windows[index], catalogue_->application(window.identity),
                           std::nullopt, window.window != 0 && window.window == stack->active};
        const int process = window.identity.process.processIdentifier;
        if (facts.application.browser == Browser::Chromium && window.window != 0 && process > 0) {
            const auto [known, isNew] = readings.try_emplace(process);
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
            if (isNew && left > 0ms)
                known->second = windows_->read(process, left);
            facts.reading = known->second;
        }
        if (isWithheld(facts, markers_))
            found.push_back(index);
    }
    if (!found.empty() && !stack->arePlacesKnown)
        return std::nullopt;
    return visibleArea(*stack, withUnmanaged(*stack, std::move(found)));
}

} // namespace mnemora::desktop
