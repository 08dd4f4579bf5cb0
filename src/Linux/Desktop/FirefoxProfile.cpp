#include "Linux/Desktop/FirefoxProfile.h"

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace mnemora::desktop {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view setting = "\"browser.privatebrowsing.autostart\"";

/// The folders that the process has locked, as it sees them: its profile's
/// (toolkit/profile/nsProfileLock.cpp of the Mozilla sources), and while it starts also one below
/// the folder for temporary files, which keeps two starts apart.
std::vector<fs::path> lockedFolders(const fs::path& process) {
    std::vector<fs::path> folders;
    std::error_code error;
    for (fs::directory_iterator file(process / "fd", error), end; !error && file != end;
         file.increment(error)) {
        std::error_code gone; // a file that was closed meanwhile
        const auto target = fs::read_symlink(file->path(), gone);
        if (!gone && target.filename() == ".parentlock")
            folders.push_back(target.parent_path());
    }
    return folders;
}

/// Whether a line of the file sets it: user_pref("name", true); absent where there is no such file.
std::optional<bool> sets(const fs::path& file) {
    constexpr std::size_t longestLine = 1024; // longer ones hold other settings
    std::error_code error;
    if (!fs::is_regular_file(file, error))
        return std::nullopt;
    std::ifstream lines(file);
    if (!lines)
        return std::nullopt;
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

std::optional<bool> neverRemembersHistory(int processIdentifier) {
    const fs::path process = "/proc/" + std::to_string(processIdentifier);
    const fs::path root = process / "root";
    std::error_code error;
    const auto program = fs::read_symlink(process / "exe", error);
    // The family's programs have their resources in this file beside them.
    if (error || !fs::exists(root / program.parent_path().relative_path() / "omni.ja", error))
        return std::nullopt;
    bool isTold = false;
    for (const auto& folder : lockedFolders(process))
        for (const char* file : {"prefs.js", "user.js"}) {
            const auto setsIt = sets(root / folder.relative_path() / file);
            if (setsIt.value_or(false))
                return true;
            isTold = isTold || setsIt;
        }
    return !isTold;
}

} // namespace mnemora::desktop
