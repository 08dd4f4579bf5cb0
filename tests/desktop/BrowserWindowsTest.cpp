#include "desktop/DesktopSession.h"
#include "fakes/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <fstream>
#include <unistd.h>

namespace mnemora::desktop {
namespace {

using namespace std::chrono_literals;
using Steady = std::chrono::steady_clock;
namespace fs = std::filesystem;

/// Two pages and a place for profiles.
class BrowserWindows : public testing::Test {
  protected:
    BrowserWindows() {
        std::ofstream(folder_ / "open.html") << "<title>Open page</title>";
        std::ofstream(folder_ / "hidden.html") << "<title>Hidden page</title>";
    }

    void SetUp() override {
        ASSERT_NE(session_.workspace, nullptr) << "to be run by scripts/virtual-session --a11y";
        ASSERT_TRUE(session_.runUntil([&] { return session_.titles->isProcessTrusted(); }));
    }

    [[nodiscard]] std::string page(const char* name) const {
        return "file://" + (folder_ / name).string();
    }
    [[nodiscard]] std::string profile(const char* name) const { return (folder_ / name).string(); }

    /// Waits for a title in front that contains the text and returns it.
    std::string waitForTitle(const std::string& text) {
        std::string title;
        EXPECT_TRUE(session_.runUntil([&] {
            title = session_.frontTitle().value_or("");
            return title.find(text) != std::string::npos;
        })) << text
            << " never came, last was '" << title << "'";
        return title;
    }
    /// What the guard says once it says the same for a while: a window that has just come to the
    /// front is not yet known to be in front everywhere.
    bool mayBeRead() {
        return session_.runUntil([&, since = Steady::now()] {
            return session_.guard->contentMayBeRead() || Steady::now() - since > 3s;
        }) && session_.guard->contentMayBeRead();
    }

    test::TemporaryFolder folder_;
    DesktopSession session_;
};

TEST_F(BrowserWindows, OfChromiumAreReadOnlyWhenOrdinaryAlsoInGerman) {
    setenv("LANGUAGE", "de", 1);
    const std::vector<std::string> command = {"chromium", "--no-sandbox", "--no-first-run",
                                              "--disable-gpu",
                                              "--user-data-dir=" + profile("chromium")};
    auto ordinary = command;
    ordinary.push_back(page("open.html"));
    const Program browser(ordinary);
    EXPECT_EQ(waitForTitle("Open page"), "Open page - Chromium");
    EXPECT_EQ(session_.workspace->frontmostApplication()->bundleIdentifier, "com.google.Chrome");
    EXPECT_TRUE(mayBeRead());

    auto hidden = command;
    hidden.insert(hidden.end(), {"--incognito", page("hidden.html")});
    Program(hidden).wait();
    EXPECT_EQ(waitForTitle("Hidden page"), "Hidden page - Chromium (anonym)");
    EXPECT_FALSE(mayBeRead());

    // A browser that hangs: what it shows can't be judged, and nobody waits for it.
    browser.signal(SIGSTOP);
    (void)session_.frontTitle();
    const auto began = Steady::now();
    (void)session_.frontTitle();
    const bool judged = session_.guard->contentMayBeRead();
    const auto took = Steady::now() - began;
    browser.signal(SIGCONT);
    EXPECT_FALSE(judged);
    EXPECT_LT(took, 500ms);
}

TEST_F(BrowserWindows, OfFirefoxAreReadOnlyWhenOrdinary) {
    const std::vector<std::string> command = {"firefox-esr", "--no-remote", "--profile",
                                              profile("firefox")};
    fs::create_directory(profile("firefox"));
    {
        auto ordinary = command;
        ordinary.push_back(page("open.html"));
        const Program browser(ordinary);
        EXPECT_EQ(waitForTitle("Open page"), "Open page — Mozilla Firefox");
        EXPECT_TRUE(mayBeRead());
    }
    auto hidden = command;
    hidden.insert(hidden.end(), {"--private-window", page("hidden.html")});
    const Program browser(hidden);
    waitForTitle("Hidden page — ");
    EXPECT_FALSE(mayBeRead());
}

} // namespace
} // namespace mnemora::desktop
