#include "Linux/Desktop/FocusedWindowTitles.h"
#include "Linux/Desktop/FrontContentGuard.h"
#include "Linux/Desktop/LanguagePack.h"
#include "Text/Encoding.h"
#include "fakes/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

namespace mnemora::desktop {
namespace {

using Text = std::optional<std::string>;
namespace fs = std::filesystem;

TEST(ChosenTitle, TakesTheSourceThatCanBeTrustedForTheBrowser) {
    struct Case {
        Browser browser;
        Text accessible, shown, chosen;
    };
    const std::vector<Case> cases = {
        {Browser::None, "Report", "report.md", "Report"},
        {Browser::None, std::nullopt, "user@host: ~", "user@host: ~"},
        {Browser::None, "", "report.md", "report.md"},
        {Browser::None, "", std::nullopt, ""},
        {Browser::None, std::nullopt, std::nullopt, std::nullopt},
        {Browser::None, "Sign in", "Enter your password", "Enter your password"},
        {Browser::None, "Enter your password", "Sign in", "Enter your password"},
        {Browser::Chromium, "News - Chromium (Incognito)", "News - Chromium",
         "News - Chromium (Incognito)"},
        {Browser::Chromium, std::nullopt, "News - Chromium", std::nullopt},
        // The name of the process's other window, heard before the focus change.
        {Browser::Chromium, "Mail - Chromium", "News - Chromium", std::nullopt},
        {Browser::Chromium, "News - Chromium", std::nullopt, "News - Chromium"},
        {Browser::Firefox, std::nullopt, "News — Mozilla Firefox Private Browsing",
         "News — Mozilla Firefox Private Browsing"},
    };
    for (const Case& test : cases)
        EXPECT_EQ(chosenTitle(test.browser, test.accessible, test.shown), test.chosen)
            << test.accessible.value_or("-") << " | " << test.shown.value_or("-");
}

TEST(StillTrue, ANameHeardEarlierCountsBesideItsOwnTitleOnly) {
    const Text name = "News - Chromium (Incognito)";
    EXPECT_EQ(stillTrue(name, "News - Chromium"), name);
    EXPECT_EQ(stillTrue("report.md", "report.md"), "report.md");
    for (const Text& shown :
         {Text("Mail - Chromium"), Text("Other program"), Text(""), Text(" - Chromium"), Text()})
        EXPECT_EQ(stillTrue(name, shown), std::nullopt) << shown.value_or("-");
    EXPECT_EQ(stillTrue(std::nullopt, "News"), std::nullopt);
}

TEST(ShortenedTitle, KeepsBothEndsOfAHugeOneAndWholeCharacters) {
    EXPECT_EQ(shortenedTitle("short"), "short");
    for (const std::string letter : {"a", "é", "山", "🙂"}) {
        std::string title = "begin ";
        for (int i = 0; i < 100000; ++i)
            title += letter;
        const std::string result = shortenedTitle(title + " - Chromium (Incognito)");
        EXPECT_LE(result.size(), 4096U);
        EXPECT_TRUE(result.starts_with("begin "));
        EXPECT_TRUE(result.ends_with(" - Chromium (Incognito)"));
        EXPECT_EQ(repairedUtf8(result), result);
    }
}

TEST(PrivateWindowMarkers, KnowTheBrowsersOwnWordsInEveryLanguage) {
    PrivateWindowMarkers markers;
    const auto chromium = [&](std::string_view name) {
        return markers.marksChromium(name, getpid(), "/nowhere/browser");
    };
    for (const char* name :
         {"News - Chromium (Incognito)", "Nachrichten - Chromium (anonym)",
          "ニュース - Chromium（シークレット モード）", "„Naujienos - Chromium“ (Inkognito)",
          "\u202bأخبار - Chromium (التصفح المتخفي)\u202c", "Premsa - Chromium (Inco\u0300gnit)",
          "News - Chromium (Guest)", "Nachrichten - Chromium (Gast)",
          "ニュース - Chromium（ゲスト）", "„Naujienos - Chromium“ (svečias)",
          "\u202bأخبار - Chromium (وضع الضيف)\u202c"})
        EXPECT_TRUE(chromium(name)) << name;
    for (const char* name : {"News - Chromium", "", "anonym", "(Incognito) explained - Chromium",
                             "How to be a guest (Guest) - Chromium"})
        EXPECT_FALSE(chromium(name)) << name;
    for (const char* title :
         {"News — Mozilla Firefox Private Browsing", "Mozilla Firefox Privater Modus",
          "新聞 — Mozilla Firefox プライベートブラウジング",
          "Nova — Navegação privada do Mozilla Firefox"})
        EXPECT_TRUE(PrivateWindowMarkers::marksFirefox(title)) << title;
    for (const char* title : {"News — Mozilla Firefox", "", "Privater Modus — Mozilla Firefox"})
        EXPECT_FALSE(PrivateWindowMarkers::marksFirefox(title)) << title;
}

/// A language pack, version 5, with these strings.
std::string packBytes(const std::vector<std::pair<std::uint16_t, std::string>>& strings) {
    const auto number = [](std::string& bytes, std::uint32_t value, int size) {
        for (int i = 0; i < size; ++i)
            bytes += static_cast<char>((value >> (8 * i)) & 0xFFU);
    };
    std::string bytes, texts;
    number(bytes, 5, 4), number(bytes, 1, 4);
    number(bytes, static_cast<std::uint32_t>(strings.size()), 2), number(bytes, 0, 2);
    const std::size_t start = bytes.size() + 6 * (strings.size() + 1);
    for (const auto& [identifier, text] : strings) {
        number(bytes, identifier, 2);
        number(bytes, static_cast<std::uint32_t>(start + texts.size()), 4);
        texts += text;
    }
    number(bytes, 0, 2);
    number(bytes, static_cast<std::uint32_t>(start + texts.size()), 4);
    return bytes + texts;
}

class LanguagePacks : public testing::Test {
  protected:
    LanguagePacks() { fs::create_directory(folder_ / "locales"); }

    void write(const std::string& language, const std::string& bytes) const {
        std::ofstream(folder_ / "locales" / (language + ".pak"), std::ios::binary) << bytes;
    }

    test::TemporaryFolder folder_;
};

TEST_F(LanguagePacks, AreReadBesideTheBrowserAndMayBeOfAnyOfTheFamily) {
    write("en-US", packBytes({{7, "Open in a private window"},
                              {9, "$1 (Private)"},
                              {10, "$1 (Guest)"},
                              {11, "$1 tabs"}}));
    write("xx",
          packBytes({{7, "..."}, {9, "<$1> geheimer Modus"}, {10, "$1 (Besuch)"}, {11, "$1 ..."}}));
    write("yy", packBytes({{9, "$1"}}));
    write("broken", "no language pack");
    PrivateWindowMarkers markers;
    const std::string executable = (folder_ / "browser").string();
    EXPECT_TRUE(markers.marksChromium("News - Brave (Private)", getpid(), executable));
    EXPECT_TRUE(markers.marksChromium("<News - Brave> geheimer Modus", getpid(), executable));
    EXPECT_TRUE(markers.marksChromium("News - Brave (Besuch)", getpid(), executable));
    EXPECT_FALSE(markers.marksChromium("News - Brave", getpid(), executable));
}

TEST_F(LanguagePacks, ThatAreDamagedHaveFewerStringsAndDoNoHarm) {
    const std::string whole = packBytes({{1, "$1 (Incognito)"}, {2, "two"}, {40000, "three"}});
    std::mt19937 random(7);
    for (int round = 0; round < 300; ++round) {
        std::string bytes = whole.substr(0, random() % (whole.size() + 1));
        for (unsigned flips = random() % 4; flips > 0 && !bytes.empty(); --flips)
            bytes[random() % bytes.size()] = static_cast<char>(random());
        write("en-US", bytes);
        for (const TitleFormat& format : privateFormats(folder_ / "locales"))
            EXPECT_GE(format.before.size() + format.after.size(), 3U);
    }
}

TEST(FrontContent, OfABrowserIsReadOnlyWhenItIsKnownNotToBePrivate) {
    using atspi::WindowReading;
    struct Case {
        Browser browser;
        Text shown;
        std::optional<WindowReading> reading;
        bool mayBeRead;
        bool keepsNothing = false;
        std::string instance = "Navigator";
    };
    const WindowReading news{"News - Chromium", true};
    const std::vector<Case> cases = {
        {Browser::None, "Report", std::nullopt, true},
        {Browser::None, std::nullopt, std::nullopt, true},
        {Browser::None, "Enter your password", std::nullopt, false},
        {Browser::None, "Sign in", WindowReading{"Enter your password", true}, false},
        {Browser::Chromium, "News - Chromium", news, true},
        {Browser::Chromium, "News - Chromium", std::nullopt, false},
        {Browser::Chromium, "News - Chromium", WindowReading{"News - Chromium", false}, false},
        {Browser::Chromium, "News - Chromium", WindowReading{std::nullopt, true}, false},
        {Browser::Chromium, "Mail - Chromium", news, false},
        {Browser::Chromium, "News - Chromium", WindowReading{"News - Chromium (anonym)", true},
         false},
        {Browser::Chromium, "News - Chromium",
         WindowReading{"News - Chromium", true, {"News - Chromium", "Bank - Chromium (Guest)"}},
         true},
        {Browser::Chromium, "News - Chromium – Work",
         WindowReading{"News - Chromium – Work", true, {"„Bank – Chromium“ (svečias)"}}, true},
        {Browser::Chromium, "Picture in picture",
         WindowReading{"Picture in picture", true, {"Bank - Chromium (Incognito)"}}, false},
        {Browser::Chromium, "DevTools - chromium.example",
         WindowReading{"DevTools - chromium.example", true, {"Bank – Chromium (anonym)"}}, false},
        {Browser::Chromium, "DevTools - news.example",
         WindowReading{"DevTools - news.example", true, {"News - Chromium"}}, true},
        {Browser::WebKit, "News", WindowReading{"News", true}, true},
        {Browser::WebKit, "News", std::nullopt, false},
        {Browser::WebKit, "News", WindowReading{"News", true}, false, true},
        {Browser::Firefox, "News — Mozilla Firefox", std::nullopt, true},
        {Browser::Firefox, "News — Mozilla Firefox", std::nullopt, false, true},
        {Browser::Firefox, "News — Mozilla Firefox Privater Modus", std::nullopt, false},
        {Browser::Firefox, std::nullopt, std::nullopt, false},
        {Browser::Firefox, "Page Info — https://bank.example", std::nullopt, false, false,
         "Browser"},
        {Browser::Firefox, "Developer Tools — Bank", std::nullopt, false, false, "Devtools"},
        {Browser::Firefox, "Picture-in-Picture", std::nullopt, false, false, "Toolkit"},
        {Browser::Firefox, "Bank — Mozilla Firefox", std::nullopt, false, false, ""},
        {Browser::Unmarked, "News", WindowReading{"News", true}, false},
    };
    PrivateWindowMarkers markers;
    for (const Case& test : cases) {
        FrontFacts facts;
        facts.window.title = test.shown;
        facts.window.identity.instance = test.instance;
        facts.window.identity.process.keepsNothing = test.keepsNothing;
        facts.application.browser = test.browser;
        facts.reading = test.reading;
        EXPECT_EQ(mayBeRead(facts, markers), test.mayBeRead)
            << static_cast<int>(test.browser) << " " << test.shown.value_or("-");
    }
    FrontFacts vault;
    vault.application.bundleIdentifier = "com.apple.keychainaccess.keepassxc";
    EXPECT_FALSE(mayBeRead(vault, markers));
}

TEST(FrontContent, IsNotReadWhenAnotherWindowComesToTheFrontMeanwhile) {
    const auto catalogue = std::make_shared<ApplicationCatalogue>(
        std::make_shared<EntryIndex>(std::vector<DesktopEntry>{}));
    const FrontWindow report{.window = 1, .identity = {}, .title = "Report"};
    const FrontWindow other{.window = 2, .identity = {}, .title = "Other"};
    const std::vector<std::pair<std::vector<std::optional<FrontWindow>>, bool>> cases = {
        {{report, report}, true},
        {{report, other}, false},
        {{report, std::nullopt}, false},
        {{std::nullopt, report}, false}};
    for (const auto& [seen, mayBeRead] : cases) {
        std::size_t look = 0;
        FrontContentGuard guard([&](auto) { return seen.at(look++); }, nullptr, catalogue);
        EXPECT_EQ(guard.contentMayBeRead(), mayBeRead);
    }
}

} // namespace
} // namespace mnemora::desktop
