#include "Linux/Desktop/SettingsFile.h"

#include "fakes/CapturedStderr.h"
#include "fakes/TemporaryHome.h"

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace mnemora::test {
namespace {

using desktop::SettingsFile;
using Values = std::map<std::string, DefaultsValue>;

TEST(Defaults, ReadBackWhatTheyWrote) {
    const Values values = {{"a", std::int64_t{-7}},
                           {"b", 1234567890.25},
                           {"c", 3.0},
                           {"d", std::string("zwölf \" \n \\ 山")}};
    EXPECT_EQ(parseDefaults(formatDefaults(values)), values);
    EXPECT_EQ(parseDefaults(formatDefaults({{"x", std::string("\xff")}})),
              (Values{{"x", std::string("\xEF\xBF\xBD")}}));
}

TEST(Defaults, MakeNothingOfTornAndHostileTexts) {
    const auto whole = formatDefaults({{"nudge.day", std::string("2026-11-16")}, {"n", 1.5}});
    for (size_t length = 0; length + 2 < whole.size(); ++length)
        EXPECT_EQ(parseDefaults(whole.substr(0, length)), std::nullopt) << length;
    const std::string texts[] = {"null",
                                 "[1]",
                                 "7",
                                 R"({"a":1e999})",
                                 R"({"a":1} {"b":2})",
                                 "{\"a\":\"\xff\"}",
                                 std::string("{\"a\":\0 1}", 9),
                                 std::string(60'000, '['),
                                 "{" + std::string(maxDefaultsBytes, ' ') + "}"};
    for (const auto& text : texts)
        EXPECT_EQ(parseDefaults(text), std::nullopt) << text.substr(0, 40);
    EXPECT_EQ(parseDefaults(R"({"a":{"b":1},"c":[],"d":true,"e":null,"f":1,"f":2})"),
              (Values{{"f", std::int64_t{2}}}));
    EXPECT_EQ(parseDefaults(R"({"a":18446744073709551615})"),
              (Values{{"a", 18446744073709551615.0}}));
}

TEST(Defaults, AWrongKindReadsAsMissing) {
    const TemporaryHome home;
    SettingsFile file(home.path() / "settings" / "defaults.json");
    file.set("text", std::string("12"));
    file.set("huge", 1e300);
    file.set("real", 2.75);
    file.set("integer", std::int64_t{3});
    EXPECT_EQ(file.integer("text"), 0);
    EXPECT_EQ(file.integer("huge"), 0);
    EXPECT_EQ(file.integer("real"), 2);
    EXPECT_EQ(file.real("integer"), 3.0);
    EXPECT_EQ(file.text("integer"), std::nullopt);
    EXPECT_EQ(file.real("nothing"), 0);
}

class SettingsFileTest : public testing::Test {
  protected:
    void put(const std::string& text) const {
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path) << text;
    }

    TemporaryHome home;
    std::filesystem::path path = home.path() / "config" / "mnemora" / "defaults.json";
    CapturedStderr log;
};

TEST_F(SettingsFileTest, LastsAndIsPrivate) {
    for (const mode_t mask : {0777, 0}) {
        umask(mask);
        SettingsFile file(path);
        file.set("nudge.count", std::int64_t{2});
        file.set("nudge.day", std::string("2026-11-16"));
        file.set("mask", std::int64_t{mask});
        struct stat info {};
        ASSERT_EQ(stat(path.c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 07777, 0600U);
    }
    const SettingsFile again(path);
    EXPECT_EQ(again.integer("nudge.count"), 2);
    EXPECT_EQ(again.text("nudge.day"), "2026-11-16");
    const auto begin = std::filesystem::directory_iterator(path.parent_path());
    EXPECT_EQ(std::distance(begin, {}), 1); // no temporary file is left
    EXPECT_EQ(log.text(), "");
}

TEST_F(SettingsFileTest, KeepsADamagedFileBesideTheNewOne) {
    put("{\"nudge.count\": 2");
    {
        SettingsFile file(path);
        EXPECT_EQ(file.value("nudge.count"), std::nullopt);
        file.set("nudge.count", std::int64_t{1});
    }
    EXPECT_EQ(SettingsFile(path).integer("nudge.count"), 1);
    EXPECT_TRUE(std::filesystem::exists(path.string() + ".damaged"));
    EXPECT_EQ(log.text(),
              "[mnemora][error] settings unreadable, starting afresh: " + path.string() + "\n");
}

TEST_F(SettingsFileTest, SurvivesWhatIsNoFileAndWhatCannotBeWritten) {
    std::filesystem::create_directories(path.parent_path());
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0); // reading it would wait for ever
    EXPECT_EQ(SettingsFile(path).value("a"), std::nullopt);
    std::ofstream(home.path() / "file") << "x";
    SettingsFile below(home.path() / "file" / "defaults.json"); // no folder can be made there
    below.set("a", std::int64_t{1});
    below.set("a", std::int64_t{2});
    EXPECT_EQ(below.integer("a"), 2);
    const auto said = log.text();
    const auto first = said.find("can't be written");
    EXPECT_NE(first, std::string::npos) << said;
    EXPECT_EQ(said.find("can't be written", first + 1), std::string::npos) << said; // said once
}

TEST_F(SettingsFileTest, WritesBehindALinkAndKeepsIt) {
    const auto elsewhere = home.path() / "elsewhere.json";
    std::ofstream(elsewhere) << R"({"a": 1})";
    std::filesystem::create_directories(path.parent_path());
    std::filesystem::create_symlink(elsewhere, path);
    SettingsFile(path).set("b", std::int64_t{2});
    EXPECT_TRUE(std::filesystem::is_symlink(path));
    EXPECT_EQ(SettingsFile(elsewhere).integer("b"), 2);
}

} // namespace
} // namespace mnemora::test
