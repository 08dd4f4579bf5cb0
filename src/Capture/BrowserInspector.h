#pragma once
// The active tab of a supported browser: its address and the visible text of its page, read by
// small scripts through the platform's script host.

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace mnemora {

/// Namespace-like holder. The readers run on any thread and take as long as the browser needs to
/// answer; the probe and the request are the setup window's, on the main thread. Every failure is
/// silent and absent.
struct BrowserInspector {
    BrowserInspector() = delete;

    /// Supported browsers: bundle identifier (compared exactly) to the name used in scripts.
    [[nodiscard]] static const std::map<std::string, std::string>& browsers();

    /// Identifiers of the supported browsers that run now.
    [[nodiscard]] static std::vector<std::string> runningBrowsers();

    /// The active tab's address.
    [[nodiscard]] static std::optional<std::string> currentTabURL(const std::string& bundleId);

    /// The first `maxChars` characters of the active tab's page text.
    [[nodiscard]] static std::optional<std::string> currentTabText(const std::string& bundleId,
                                                                   long long maxChars);

    /// Whether a script can read the address of at least one running browser.
    [[nodiscard]] static bool browserAccessGranted();

    /// Lets every running browser ask for consent; opens the settings page when access is still
    /// missing afterwards.
    static void requestBrowserAccess();

  private:
    [[nodiscard]] static std::optional<std::string> runAppleScript(const std::string& text);
};

} // namespace mnemora
