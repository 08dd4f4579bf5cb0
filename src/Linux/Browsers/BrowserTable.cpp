#include "Linux/Browsers/BrowserTable.h"

namespace mnemora::browsers {
namespace {

struct Executable {
    std::string_view name;
    const char* bundleIdentifier;
};

constexpr std::array executables{
    Executable{"chromium", "com.google.Chrome"},
    Executable{"chromium-browser", "com.google.Chrome"},
    Executable{"chrome", "com.google.Chrome"},
    Executable{"msedge", "com.microsoft.edgemac"},
    Executable{"brave", "com.brave.Browser"},
    Executable{"brave-browser", "com.brave.Browser"},
    Executable{"epiphany", "com.apple.Safari"},
    Executable{"epiphany-browser", "com.apple.Safari"},
};

} // namespace

std::optional<std::string> bundleIdentifierOf(std::string_view executable) {
    // The kernel's mark on the link of a running program whose file is gone: proc(5).
    constexpr std::string_view replaced = " (deleted)";
    if (executable.ends_with(replaced))
        executable.remove_suffix(replaced.size());
    const auto name = executable.substr(executable.rfind('/') + 1);
    for (const auto& each : executables)
        if (each.name == name)
            return each.bundleIdentifier;
    return std::nullopt;
}

} // namespace mnemora::browsers
