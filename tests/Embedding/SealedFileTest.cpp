#include "Linux/Embedding/SealedFile.h"

#include "fakes/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace mnemora::embedding {
namespace {

using test::contentOf;
using test::flipByte;
using test::TemporaryFolder;
using test::writeFile;

std::string_view textOf(const SealedFile& file) {
    return {reinterpret_cast<const char*>(file.content().data()), file.content().size()};
}

TEST(SealedFileTest, GivesBackWhatWasWrittenForTheSameKeyOnly) {
    const TemporaryFolder folder;
    const auto path = folder.path() / "cache";
    const std::string content(100'001, 'c');
    for (const mode_t hostile : {0777, 0}) {
        const auto mask = umask(hostile);
        const bool written = SealedFile::write(path, 7, content);
        umask(mask);
        ASSERT_TRUE(written);
        struct stat info {};
        ASSERT_EQ(stat(path.c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 07777U, 0600U);
    }

    const auto file = SealedFile::open(path, 7);
    ASSERT_TRUE(file);
    EXPECT_EQ(textOf(*file), content);
    file->dropPages();
    EXPECT_EQ(textOf(*file), content);
    EXPECT_FALSE(SealedFile::open(path, 8));
    // A newer one takes its place while the older is still mapped.
    ASSERT_TRUE(SealedFile::write(path, 8, "newer"));
    EXPECT_EQ(textOf(*file), content);
    EXPECT_EQ(textOf(*SealedFile::open(path, 8)), "newer");
}

TEST(SealedFileTest, TakesATornOrDamagedFileForNone) {
    const TemporaryFolder folder;
    const auto path = folder.path() / "cache";
    EXPECT_FALSE(SealedFile::open(path, 7));
    ASSERT_TRUE(SealedFile::write(path, 7, "some content"));
    const auto whole = contentOf(path);
    for (std::size_t size = 0; size < whole.size(); ++size) {
        writeFile(path, whole.substr(0, size));
        EXPECT_FALSE(SealedFile::open(path, 7)) << size;
        writeFile(path, whole);
        flipByte(path, static_cast<std::streamoff>(size));
        EXPECT_FALSE(SealedFile::open(path, 7)) << size;
    }
    writeFile(folder.path() / "target", whole);
    std::filesystem::remove(path);
    std::filesystem::create_symlink("target", path);
    EXPECT_FALSE(SealedFile::open(path, 7));
    std::filesystem::remove(path);
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_FALSE(SealedFile::open(path, 7));
    EXPECT_FALSE(SealedFile::write(folder.path() / "missing" / "cache", 7, "some content"));
}

} // namespace
} // namespace mnemora::embedding
