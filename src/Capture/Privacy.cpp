#include "Capture/Privacy.h"

#include "Text/Characters.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace mnemora {
namespace {

constexpr std::array<std::string_view, 17> privateTitleKeywords = {
    "password",          "passcode",         "otp",       "one-time",    "2fa",
    "verification code", "card number",      "cvv",       "net banking", "netbanking",
    "bank login",        "private browsing", "incognito", "seed phrase", "recovery phrase",
    "api key",           "secret key"};

} // namespace

const std::set<std::string>& Privacy::excludedBundlePrefixes() {
    static const std::set<std::string> prefixes = {
        "com.apple.keychainaccess", "com.1password", "com.agilebits", "com.lastpass",
        "in.sinew.Walnut",          "com.paypal"};
    return prefixes;
}

bool Privacy::shouldRedact(const std::optional<std::string>& bundle,
                           const std::optional<std::string>& title) {
    if (bundle) {
        const std::string identifier = lowercased(*bundle);
        const auto excludes = [&](const std::string& prefix) {
            return identifier.starts_with(lowercased(prefix));
        };
        if (std::ranges::any_of(excludedBundlePrefixes(), excludes))
            return true;
    }
    if (!title)
        return false;
    const std::string words = lowercased(*title);
    return std::ranges::any_of(privateTitleKeywords, [&](std::string_view keyword) {
        return words.find(keyword) != std::string::npos;
    });
}

} // namespace mnemora
