#pragma once
// The command line of mnemora-erase, and the times in it.

#include "Erase/MemoryEraser.h"
#include "Platform/Clock.h"

#include <chrono>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace mnemora {

struct EraseOptions {
    TimeRange range;
    bool isDryRun = false;
    bool isConfirmed = false; // --yes
    bool wantsHelp = false;
    std::chrono::seconds patience{30};
};

/// The options, or one line that says what is wrong with them. Days and times are the user's
/// local ones, as `clock` has them.
[[nodiscard]] std::variant<EraseOptions, std::string>
parseEraseOptions(const std::vector<std::string>& arguments, const Clock& clock);

} // namespace mnemora
