#pragma once
// The browsers that the extension runs in: how they are recognised, which identifier the rules
// know them by, and where each looks for extensions and native-messaging hosts.

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace mnemora::browsers {

/// Who may add an extension to a browser by a file.
enum class InstalledBy {
    user,         ///< a file in the user's own configuration folder is enough
    administrator ///< only its store, or a file in a folder of the system's
};

struct Browser {
    /// Its own name, as its user reads it.
    const char* name;
    /// Identifier of the row that the rules know; Chromium and Chrome share one.
    const char* bundleIdentifier;
    /// Its folder below the user's configuration folder (chrome/common/chrome_paths_linux.cc).
    const char* folder;
    /// Names under which it is started, looked up in PATH.
    std::array<const char*, 3> commands;
    /// Chromium reads the user's "External Extensions" folder on Linux in builds under its own
    /// name only (chrome/browser/extensions/external_provider_impl.cc).
    InstalledBy installedBy;
    /// The system's folder for the same files.
    const char* systemExtensions;
};

inline constexpr std::array browserTable{
    Browser{"Chromium",
            "com.google.Chrome",
            "chromium",
            {"chromium", "chromium-browser", nullptr},
            InstalledBy::user,
            "/usr/share/chromium/extensions"},
    Browser{"Google Chrome",
            "com.google.Chrome",
            "google-chrome",
            {"google-chrome", "google-chrome-stable", nullptr},
            InstalledBy::administrator,
            "/opt/google/chrome/extensions"},
    Browser{"Microsoft Edge",
            "com.microsoft.edgemac",
            "microsoft-edge",
            {"microsoft-edge", "microsoft-edge-stable", nullptr},
            InstalledBy::administrator,
            "/usr/share/microsoft-edge/extensions"},
    Browser{"Brave",
            "com.brave.Browser",
            "BraveSoftware/Brave-Browser",
            {"brave-browser", "brave-browser-stable", "brave"},
            InstalledBy::user,
            "/opt/brave.com/brave/extensions"},
};

/// The identifier of the browser whose main executable lies at this path ("/opt/google/chrome/
/// chrome"); absent for every other program. A file replaced by an update keeps counting.
[[nodiscard]] std::optional<std::string> bundleIdentifierOf(std::string_view executable);

} // namespace mnemora::browsers
