#include "Capture/Privacy.h"

#include <gtest/gtest.h>

namespace mnemora {
namespace {

TEST(Privacy, WithholdsByIdentifierAndTitle) {
    struct Case {
        std::optional<std::string> bundle;
        std::optional<std::string> title;
        bool redacted;
    };
    const std::vector<Case> cases = {
        {"com.1password.1password7", "anything", true},
        {"COM.LastPass.LastPass", std::nullopt, true},
        {"in.sinew.Walnut", "", true},
        {"in.sinew.walnut.mac", "", true},
        {"com.paypalhere", "", true},
        {"com.apple.keychainaccess", std::nullopt, true},
        {"com.agilebits.onepassword", std::nullopt, true},
        {"org.com.paypal", "", false},
        {"com.apple.Safari", "Inbox", false},
        {"com.apple.Safari", "Hotpot recipes", true},
        {std::nullopt, "Private Browsing", true},
        {"com.example.App", std::nullopt, false},
        {"", "", false},
        {std::nullopt, std::nullopt, false},
        {"a", "Enter your 2FA code", true},
        {"a", "Two factor", false},
        {"a", "PASSWORD reset", true},
        {"a", "Passcode", true},
        {"a", "a One-Time thing", true},
        {"a", "Verification  code", false},
        {"a", "Your verification code", true},
        {"a", "Card number", true},
        {"a", "CVV", true},
        {"a", "Net Banking", true},
        {"a", "NetBanking", true},
        {"a", "Bank login", true},
        {"a", "New Tab (Incognito)", true},
        {"a", "Seed phrase", true},
        {"a", "Recovery Phrase", true},
        {"a", "API keys", true},
        {"a", "SECRET KEY", true},
        {"a", "İNCOGNİTO", false}, // dotted capitals become i and a combining dot
        {"a", "\u212Aeys and an API \u212Aey", true}, // the Kelvin sign is a K
    };
    for (const auto& [bundle, title, redacted] : cases)
        EXPECT_EQ(Privacy::shouldRedact(bundle, title), redacted)
            << bundle.value_or("-") << " " << title.value_or("-");
    EXPECT_EQ(Privacy::excludedBundlePrefixes().size(), 6U);
}

} // namespace
} // namespace mnemora
