#include "Linux/Browsers/BrowserIntegration.h"
#include "fakes/ScopedVariable.h"
#include "fakes/TemporaryFolder.h"

#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>

using namespace mnemora::browsers;
namespace fs = std::filesystem;
using Json = nlohmann::json;

namespace {

constexpr auto chromiumManifest = "config/chromium/NativeMessagingHosts/app.mnemora.pages.json";

class BrowserIntegrationTest : public testing::Test {
  protected:
    BrowserIntegrationTest() {
        for (const char* each : {"config/chromium", "config/google-chrome", "extension"})
            fs::create_directories(folder_ / each);
    }

    BrowserIntegration integration(char letter = 'a') {
        std::ofstream(folder_ / "extension/extension.json")
            << Json{{"id", std::string(32, letter)}, {"version", "1.2"}};
        return *BrowserIntegration::open({.configuration = folder_ / "config",
                                          .hostProgram = folder_ / "host",
                                          .extension = folder_ / "extension",
                                          .root = folder_ / "root"});
    }

    Json json(const fs::path& path) const { return Json::parse(std::ifstream(folder_ / path)); }

    std::vector<std::string> files() const {
        std::vector<std::string> found;
        for (const auto& entry : fs::recursive_directory_iterator(folder_ / "config"))
            if (entry.is_regular_file())
                found.push_back(entry.path().lexically_relative(folder_ / "config"));
        std::sort(found.begin(), found.end());
        return found;
    }

    mnemora::test::TemporaryFolder folder_;
    const mnemora::test::ScopedVariable path_{"PATH", folder_ / "no commands"};
};

std::string crxFile(char letter) {
    return "config/chromium/External Extensions/" + std::string(32, letter) + ".json";
}

TEST_F(BrowserIntegrationTest, InstallsForTheBrowsersThatAreThereAndSaysWhatElseIsNeeded) {
    const auto subject = integration();
    const auto before = subject.report();
    ASSERT_EQ(before.size(), 2U);
    EXPECT_EQ(before[0],
              (BrowserReport{"Chromium", "com.google.Chrome", IntegrationState::notInstalled}));
    ASSERT_TRUE(subject.install());

    EXPECT_EQ(subject.report()[0].state, IntegrationState::installed);
    EXPECT_EQ(subject.report()[1].state, IntegrationState::needsAdministrator);
    const auto host = json(chromiumManifest);
    EXPECT_EQ(host["path"], (folder_ / "host").string());
    EXPECT_EQ(host["allowed_origins"],
              Json::array({"chrome-extension://" + std::string(32, 'a') + "/"}));
    EXPECT_EQ(json(crxFile('a')),
              (Json{{"external_crx", (folder_ / "extension/mnemora.crx").string()},
                    {"external_version", "1.2"}}));
    struct stat info {};
    ASSERT_EQ(stat((folder_ / chromiumManifest).c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600U);

    fs::create_directories(folder_ / "root/opt/google/chrome/extensions");
    std::ofstream(folder_ / "root/opt/google/chrome/extensions" / (subject.id() + ".json"));
    EXPECT_EQ(subject.report()[1].state, IntegrationState::installed);
}

TEST_F(BrowserIntegrationTest, RemovesAllThatItWroteAndNothingElse) {
    fs::create_directories(folder_ / "config/chromium/NativeMessagingHosts");
    std::ofstream(folder_ / "config/chromium/NativeMessagingHosts/another.json") << "{}";
    ASSERT_TRUE(integration('a').install());
    ASSERT_TRUE(integration('b').install());
    EXPECT_FALSE(fs::exists(folder_ / crxFile('a'))) << "of the installation before";
    EXPECT_TRUE(fs::exists(folder_ / crxFile('b')));
    ASSERT_TRUE(integration('c').remove());
    EXPECT_EQ(files(), std::vector<std::string>{"chromium/NativeMessagingHosts/another.json"});
    EXPECT_TRUE(integration().remove()) << "twice";
}

TEST_F(BrowserIntegrationTest, WritesOverDamagedFilesAndSaysWhenItCant) {
    ASSERT_TRUE(integration().install());
    for (const char* damage :
         {"", "{", "[]", R"({"allowed_origins":["chrome-extension://../../x/"]})"}) {
        std::ofstream(folder_ / chromiumManifest) << damage;
        EXPECT_EQ(integration().report()[0].state, IntegrationState::notInstalled);
        EXPECT_TRUE(integration().install());
        EXPECT_EQ(integration().report()[0].state, IntegrationState::installed);
    }
    fs::remove_all(folder_ / "config/chromium/External Extensions");
    std::ofstream(folder_ / "config/chromium/External Extensions") << "a file in the way";
    EXPECT_FALSE(integration().install());
    std::ofstream(folder_ / "extension/extension.json") << "{}";
    EXPECT_FALSE(BrowserIntegration::open({.configuration = folder_ / "config",
                                           .hostProgram = {},
                                           .extension = folder_ / "extension"}));
}

} // namespace
