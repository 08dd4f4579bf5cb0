#pragma once
// What the status menu shows, as a value made anew each time it opens.

#include "Platform/StatusItem.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace mnemora {

class MnemoraStore;

/// What stands in the menu.
struct StatusMenuFacts {
    bool canCapture = false; // titles and screen alike
    std::int64_t memoriesToday = 0;
    std::vector<std::string> recent; // newest first
    bool isRecording = false;
};

/// What its commands do.
struct StatusMenuActions {
    std::function<void()> toggleRecording;
    std::function<void()> openMeetings;
    std::function<void()> openOnboarding;
    std::function<void()> quit;
};

/// The menu, from top to bottom.
[[nodiscard]] Menu statusMenu(const StatusMenuFacts& facts, const StatusMenuActions& actions);

/// Number of events stored since the day began; 0 when the store can't tell. Waits for the store.
[[nodiscard]] std::int64_t memoriesToday(MnemoraStore& store);

/// The newest `limit` events, a line each: the application and, behind a dash, the first 40
/// characters of the title, else of the text, else of the address. Waits for the store.
[[nodiscard]] std::vector<std::string> recentMemories(MnemoraStore& store, std::int64_t limit);

} // namespace mnemora
