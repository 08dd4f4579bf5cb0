#include "Linux/Desktop/FirefoxProfile.h"

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace mnemora::desktop {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view setting = "\"browser.privatebrowsing.autostart\"";

/// The folder of the profile that the process has locked (toolkit/profile/nsProfileLock.cpp of the
/// Mozilla sources), as the process sees it.
std::optional<fs::path> lockedProfile(const fs::path& process) {
    std::error_code error;
    for (fs::directory_iterator file(process / "fd", error), end; !error && file != end;
         file.increment(error)) {
        std::error_code gone; // a file that was closed meanwhile
        const auto target = fs::read_symlink(file->path(), gone);
        if (!gone && target.filename() == ".parentlock")
            return target.parent_path();
    }
    return std::nullopt;
}

/// Whether a line of the file sets it: user_pref("name", true);
bool sets(const fs::path& file) {
    constexpr std::size_t longestLine = 1024; // longer ones hold other settings
    std::ifstream lines(file);
    for (std::string line; std::getline(lines, line);) {
        const auto at = line.size() > longestLine ? line.npos : line.find(setting);
        if (at == line.npos || line.find_first_not_of(" \t") != line.find("user_pref"))
            continue;
        const auto value = line.find_first_not_of(" \t,", at + setting.size());
        if (value != line.npos && line.compare(value, 4, "true") == 0)
            return true;
    }
    return false;
}

} // namespace

bool neverRemembersHistory(int processIdentifier) {
    const fs::path process = "/proc/" + std::to_string(processIdentifier);
    const fs::path root = process / "root";
    std::error_code error;
    const auto program = fs::read_symlink(process / "exe", error);
    // The family's programs have their resources in this file beside them.
    if (error || !fs::exists(root / program.parent_path().relative_path() / "omni.ja", error))
        return false;
    const auto profile = lockedProfile(process);
    if (!profile)
        return false;
    const auto folder = root / profile->relative_path();
    return sets(folder / "prefs.js") || sets(folder / "user.js");
}

} // namespace mnemora::desktop
