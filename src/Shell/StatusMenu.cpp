#include "Shell/StatusMenu.h"

#include "Platform/CoreServices.h"
#include "Store/MnemoraStore.h"
#include "Text/Characters.h"

#include <algorithm>

namespace mnemora {
namespace {

constexpr long long maxDetailCharacters = 40;

MenuItem text(std::string title) {
    return {.title = std::move(title), .action = {}};
}

MenuItem separator() {
    return {.title = {}, .action = {}, .keyEquivalent = 0, .isSeparator = true};
}

MenuItem command(std::string title, std::function<void()> action, char keyEquivalent = 0) {
    return {.title = std::move(title), .action = std::move(action), .keyEquivalent = keyEquivalent};
}

std::string recentLine(const RowReader& row) {
    auto line = row.text(0).value_or("?");
    auto detail = row.text(1).value_or("");
    std::ranges::replace(detail, '\n', ' ');
    if (!detail.empty())
        line.append(" — ").append(firstCharacters(detail, maxDetailCharacters));
    return line;
}

} // namespace

Menu statusMenu(const StatusMenuFacts& facts, const StatusMenuActions& actions) {
    Menu menu;
    menu.push_back(text(facts.canCapture ? "● Capturing" : "● Limited — finish setup"));
    menu.push_back(text(std::to_string(facts.memoriesToday) + " memories today"));
    if (!facts.recent.empty()) {
        menu.push_back(separator());
        menu.push_back(text("RECENT"));
        for (const auto& line : facts.recent)
            menu.push_back(text("  " + line));
    }
    menu.push_back(separator());
    menu.push_back(
        command(facts.isRecording ? "⏹  Stop recording meeting" : "🔴  Record meeting (on-device)",
                actions.toggleRecording));
    menu.push_back(command("Meetings…", actions.openMeetings));
    menu.push_back(command("Setup & Permissions…", actions.openOnboarding));
    menu.push_back(command("Quit Mnemora", actions.quit, 'q'));
    return menu;
}

std::int64_t memoriesToday(MnemoraStore& store) {
    const Clock& clock = *coreServices().clock;
    const auto counts =
        store.query("SELECT count(*) FROM events WHERE ts >= ?;", {clock.startOfDay(clock.now())},
                    [](const RowReader& row) { return row.integer(0); });
    return counts.empty() ? 0 : counts.front();
}

std::vector<std::string> recentMemories(MnemoraStore& store, std::int64_t limit) {
    return store.query("SELECT app, coalesce(NULLIF(title,''), NULLIF(substr(body,1,48),''), url, "
                       "'') FROM events ORDER BY ts DESC LIMIT ?;",
                       {limit}, recentLine);
}

} // namespace mnemora
