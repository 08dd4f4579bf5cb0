#include "Linux/Wayland/UnheardPrograms.h"

#include "Linux/Desktop/ApplicationTable.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <string_view>
#include <system_error>

namespace mnemora::wayland {
namespace {

namespace fs = std::filesystem;

// What runs without a window nearly always: keyrings, agents, lockers, and a manager's own bridge.
constexpr std::array<std::string_view, 5> services = {
    "com.apple.keychainaccess.keyring", "com.apple.keychainaccess.kwallet",
    "com.apple.keychainaccess.prompt", "com.apple.keychainaccess.polkit",
    "com.apple.keychainaccess.screenlock"};
constexpr std::string_view bridge = "keepassxc-proxy";

bool mayHavePrivateWindows(const fs::path& executable) {
    const auto name = executable.filename().string();
    const auto* row = desktop::rowNamed({name});
    if (row == nullptr || name == bridge)
        return false;
    const bool isService =
        std::find(services.begin(), services.end(), row->bundleIdentifier) != services.end();
    return row->browser != desktop::Browser::None || (desktop::isConcealed(*row) && !isService);
}

} // namespace

// The links of other users' processes can't be read and say nothing.
bool runsUnheardProgram(const std::set<std::string>& heard) {
    std::error_code error;
    for (fs::directory_iterator entry("/proc", error), end; !error && entry != end;
         entry.increment(error)) {
        if (std::string_view("0123456789").find(entry->path().filename().native().front()) ==
            std::string_view::npos)
            continue;
        std::error_code gone;
        const auto executable = fs::read_symlink(entry->path() / "exe", gone);
        if (!gone && mayHavePrivateWindows(executable) && !heard.contains(executable.string()))
            return true;
    }
    return false;
}

} // namespace mnemora::wayland
