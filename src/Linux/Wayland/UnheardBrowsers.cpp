#include "Linux/Wayland/UnheardBrowsers.h"

#include "Linux/Desktop/ApplicationTable.h"

#include <filesystem>
#include <string_view>
#include <system_error>

namespace mnemora::wayland {
namespace {

namespace fs = std::filesystem;

bool isBrowser(const fs::path& executable) {
    const auto* row = desktop::rowNamed({executable.filename().string()});
    return row != nullptr && row->browser != desktop::Browser::None;
}

} // namespace

// The links of other users' processes can't be read and say nothing.
bool runsUnheardBrowser(const std::set<std::string>& heard) {
    std::error_code error;
    for (fs::directory_iterator entry("/proc", error), end; !error && entry != end;
         entry.increment(error)) {
        if (std::string_view("0123456789").find(entry->path().filename().native().front()) ==
            std::string_view::npos)
            continue;
        std::error_code gone;
        const auto executable = fs::read_symlink(entry->path() / "exe", gone);
        if (!gone && isBrowser(executable) && !heard.contains(executable.string()))
            return true;
    }
    return false;
}

} // namespace mnemora::wayland
