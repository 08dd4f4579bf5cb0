#include "Linux/Browsers/PageScript.h"
#include "Linux/Browsers/BrowserTable.h"

#include <gtest/gtest.h>

using namespace mnemora::browsers;

namespace {

struct Application {
    const char* bundleIdentifier;
    const char* name;
};

constexpr Application chromiumFamily[] = {{"com.google.Chrome", "Google Chrome"},
                                          {"company.thebrowser.Browser", "Arc"},
                                          {"com.microsoft.edgemac", "Microsoft Edge"},
                                          {"com.brave.Browser", "Brave Browser"}};

std::string chromiumAddress(const std::string& name) {
    return "tell application \"" + name + "\" to return URL of active tab of front window";
}

std::string chromiumText(const std::string& name) {
    return "tell application \"" + name +
           "\" to return (execute active tab of front window javascript "
           "\"document.body.innerText\")";
}

TEST(PageScript, UnderstandsBothDialects) {
    for (const auto& [bundle, name] : chromiumFamily) {
        EXPECT_EQ(parsePageScript(chromiumAddress(name)),
                  (PageScript{bundle, PageQuestion::address}));
        EXPECT_EQ(parsePageScript(chromiumText(name)), (PageScript{bundle, PageQuestion::text}));
    }
    EXPECT_EQ(parsePageScript("tell application \"Safari\" to return URL of front document"),
              (PageScript{"com.apple.Safari", PageQuestion::address}));
    EXPECT_EQ(parsePageScript("tell application \"Safari\" to return (do JavaScript "
                              "\"document.body.innerText\" in front document)"),
              (PageScript{"com.apple.Safari", PageQuestion::text}));
}

TEST(PageScript, UnderstandsNothingElse) {
    const auto text = chromiumText("Google Chrome");
    for (const auto& other :
         {std::string(), text + " ", text.substr(1), chromiumAddress("Safari"),
          chromiumAddress("Firefox"), chromiumAddress("google chrome"),
          text.substr(0, text.size() - 2) + ".length\")", text + std::string(1, '\0')})
        EXPECT_FALSE(parsePageScript(other)) << other;
}

TEST(BrowserTable, KnowsBrowsersByTheirExecutable) {
    const std::pair<const char*, std::optional<std::string>> cases[] = {
        {"/usr/lib/chromium/chromium", "com.google.Chrome"},
        {"/usr/lib/chromium/chromium (deleted)", "com.google.Chrome"},
        {"/usr/lib64/chromium-browser/chromium-browser", "com.google.Chrome"},
        {"/opt/google/chrome/chrome", "com.google.Chrome"},
        {"/opt/microsoft/msedge/msedge", "com.microsoft.edgemac"},
        {"/opt/brave.com/brave/brave", "com.brave.Browser"},
        {"/usr/bin/epiphany-browser", "com.apple.Safari"},
        {"/opt/vivaldi/vivaldi-bin", std::nullopt},
        {"/usr/bin/python3.11", std::nullopt},
        {"/opt/google/chrome/", std::nullopt},
        {"", std::nullopt}};
    for (const auto& [path, bundle] : cases)
        EXPECT_EQ(bundleIdentifierOf(path), bundle) << path;
}

} // namespace
