#include "Support/UserFolders.h"
#include "fakes/TemporaryHome.h"

#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace mnemora {
namespace {

mode_t modeOf(const std::filesystem::path& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 ? info.st_mode & 07777 : 0;
}

TEST(UserFolders, CountAnEmptyOrRelativeVariableAsUnset) {
    const test::TemporaryHome home;
    EXPECT_EQ(userFolders::data(), home.path() / "data");
    EXPECT_EQ(userFolders::settings(), home.path() / "config/mnemora");
    for (const char* value : {"", "relative/path"}) {
        setenv("XDG_DATA_HOME", value, 1);
        setenv("XDG_CACHE_HOME", value, 1);
        EXPECT_EQ(userFolders::data(), home.path() / ".local/share");
        EXPECT_EQ(userFolders::cache(), home.path() / ".cache/mnemora");
    }
}

TEST(UserFolders, ArePrivateWhateverTheUmask) {
    const test::TemporaryHome home;
    for (const mode_t mask : {0000, 0077, 0777}) {
        const auto folder = home.path() / ("mask" + std::to_string(mask)) / "a" / "b";
        const mode_t former = umask(mask);
        EXPECT_TRUE(userFolders::makePrivate(folder));
        umask(former);
        EXPECT_EQ(modeOf(folder), 0700U);
        EXPECT_EQ(modeOf(folder.parent_path()), 0700U);
    }
    const auto open = home.path() / "open";
    std::filesystem::create_directory(open);
    std::filesystem::permissions(open, std::filesystem::perms::all);
    EXPECT_TRUE(userFolders::makePrivate(open));
    EXPECT_EQ(modeOf(open), 0700U);
}

TEST(UserFolders, RefuseWhatIsNoFolderOfTheUsers) {
    const test::TemporaryHome home;
    std::ofstream(home.path() / "file") << "x";
    EXPECT_FALSE(userFolders::makePrivate(home.path() / "file"));
    EXPECT_FALSE(userFolders::makePrivate(home.path() / "file" / "below"));
    EXPECT_FALSE(userFolders::makePrivate(geteuid() == 0 ? "/proc/1/task" : "/"));
    std::filesystem::create_directory(home.path() / "real");
    std::filesystem::create_symlink(home.path() / "real", home.path() / "link");
    EXPECT_TRUE(userFolders::makePrivate(home.path() / "link"));
}

} // namespace
} // namespace mnemora
