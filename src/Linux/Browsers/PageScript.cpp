#include "Linux/Browsers/PageScript.h"

#include <array>

namespace mnemora::browsers {
namespace {

struct Row {
    const char* bundleIdentifier;
    const char* address;
    const char* text;
};

// Written out, so that the whole of what this host answers to is read here at a glance.
constexpr std::array rows{
    Row{"com.google.Chrome",
        R"(tell application "Google Chrome" to return URL of active tab of front window)",
        R"(tell application "Google Chrome" to return (execute active tab of front window javascript "document.body.innerText"))"},
    Row{"com.apple.Safari", R"(tell application "Safari" to return URL of front document)",
        R"(tell application "Safari" to return (do JavaScript "document.body.innerText" in front document))"},
    Row{"company.thebrowser.Browser",
        R"(tell application "Arc" to return URL of active tab of front window)",
        R"(tell application "Arc" to return (execute active tab of front window javascript "document.body.innerText"))"},
    Row{"com.microsoft.edgemac",
        R"(tell application "Microsoft Edge" to return URL of active tab of front window)",
        R"(tell application "Microsoft Edge" to return (execute active tab of front window javascript "document.body.innerText"))"},
    Row{"com.brave.Browser",
        R"(tell application "Brave Browser" to return URL of active tab of front window)",
        R"(tell application "Brave Browser" to return (execute active tab of front window javascript "document.body.innerText"))"},
};

} // namespace

std::optional<PageScript> parsePageScript(std::string_view text) {
    for (const auto& row : rows) {
        if (text == row.address)
            return PageScript{row.bundleIdentifier, PageQuestion::address};
        if (text == row.text)
            return PageScript{row.bundleIdentifier, PageQuestion::text};
    }
    return std::nullopt;
}

} // namespace mnemora::browsers
