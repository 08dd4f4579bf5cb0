#include "Capture/BrowserInspector.h"

#include "Platform/DesktopServices.h"
#include "Text/Characters.h"

#include <algorithm>

namespace mnemora {
namespace {

constexpr auto pageTextExpression = "document.body.innerText";

bool speaksSafari(const std::string& name) {
    return name == "Safari";
}

std::string addressScript(const std::string& name) {
    if (speaksSafari(name))
        return "tell application \"Safari\" to return URL of front document";
    return "tell application \"" + name + "\" to return URL of active tab of front window";
}

std::string pageTextScript(const std::string& name) {
    const std::string expression = pageTextExpression;
    if (speaksSafari(name))
        return "tell application \"Safari\" to return (do JavaScript \"" + expression +
               "\" in front document)";
    return "tell application \"" + name +
           "\" to return (execute active tab of front window javascript \"" + expression + "\")";
}

} // namespace

const std::map<std::string, std::string>& BrowserInspector::browsers() {
    static const std::map<std::string, std::string> names = {
        {"com.google.Chrome", "Google Chrome"},
        {"com.apple.Safari", "Safari"},
        {"company.thebrowser.Browser", "Arc"},
        {"com.microsoft.edgemac", "Microsoft Edge"},
        {"com.brave.Browser", "Brave Browser"}};
    return names;
}

std::vector<std::string> BrowserInspector::runningBrowsers() {
    std::vector<std::string> running;
    const auto& workspace = desktopServices().workspace;
    for (const auto& [bundleId, name] : browsers())
        if (workspace && !workspace->runningApplications(bundleId).empty())
            running.push_back(bundleId);
    return running;
}

std::optional<std::string> BrowserInspector::runAppleScript(const std::string& text) {
    const auto& host = desktopServices().scriptHost;
    const auto script = host ? host->compile(text) : nullptr;
    if (!script)
        return std::nullopt;
    const ScriptResult result = script->execute();
    return result.failed ? std::nullopt : result.text;
}

std::optional<std::string> BrowserInspector::currentTabURL(const std::string& bundleId) {
    const auto entry = browsers().find(bundleId);
    return entry == browsers().end() ? std::nullopt : runAppleScript(addressScript(entry->second));
}

std::optional<std::string> BrowserInspector::currentTabText(const std::string& bundleId,
                                                            long long maxChars) {
    const auto entry = browsers().find(bundleId);
    if (entry == browsers().end())
        return std::nullopt;
    const auto text = runAppleScript(pageTextScript(entry->second));
    if (!text)
        return std::nullopt;
    return std::string(firstCharacters(*text, maxChars));
}

bool BrowserInspector::browserAccessGranted() {
    return std::ranges::any_of(runningBrowsers(), [](const std::string& bundleId) {
        return currentTabURL(bundleId).has_value();
    });
}

void BrowserInspector::requestBrowserAccess() {
    for (const std::string& bundleId : runningBrowsers())
        (void)currentTabURL(bundleId);
    if (browserAccessGranted())
        return;
    if (const auto& workspace = desktopServices().workspace)
        workspace->open(
            "x-apple.systempreferences:com.apple.preference.security?Privacy_Automation");
}

} // namespace mnemora
