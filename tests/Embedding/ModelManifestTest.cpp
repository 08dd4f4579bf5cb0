#include "Linux/Engines/ModelManifest.h"

#include "fakes/TemporaryFolder.h"

#include <gtest/gtest.h>

namespace mnemora {
namespace {

using test::flipByte;
using test::TemporaryFolder;
using test::writeFile;

TEST(ModelManifestTest, KnowsMissingShortenedAndDamagedFiles) {
    const TemporaryFolder folder;
    const auto weights = folder.path() / "weights with blanks.onnx";
    writeFile(weights, std::string(300'000, 'w'));
    writeFile(folder.path() / "empty", "");
    ModelManifest manifest;
    manifest.properties["dimension"] = "384";
    manifest.files = {*ModelManifest::describe(weights),
                      *ModelManifest::describe(folder.path() / "empty")};
    writeFile(folder.path() / "manifest", manifest.text());

    const auto read = ModelManifest::read(folder.path() / "manifest");
    ASSERT_EQ(read, manifest);
    EXPECT_EQ(read->number("dimension"), 384);
    EXPECT_TRUE(read->sizesMatch(folder.path()) && read->digestsMatch(folder.path()));

    flipByte(weights, 299'999);
    EXPECT_TRUE(read->sizesMatch(folder.path()));
    EXPECT_FALSE(read->digestsMatch(folder.path()));
    std::filesystem::resize_file(weights, 299'999);
    EXPECT_FALSE(read->sizesMatch(folder.path()));
    std::filesystem::remove(weights);
    std::filesystem::create_directory(weights);
    EXPECT_FALSE(read->sizesMatch(folder.path()) || read->digestsMatch(folder.path()));
    EXPECT_FALSE(ModelManifest::describe(folder.path() / "nowhere"));
}

TEST(ModelManifestTest, RefusesWhatItDoesNotUnderstand) {
    const std::string head = "mnemora-manifest 1\n";
    const std::string file = "file 0123456789abcdef 12 name\n";
    ASSERT_TRUE(ModelManifest::parse(head + file));
    for (const auto& text :
         {std::string(), head, file, "mnemora-manifest 2\n" + file, head + file + "\n",
          head + file + "link a b\n", head + "file 0123456789abcde 12 name\n",
          head + "file 0123456789abcdeg 12 name\n", head + "file 0123456789abcdef -1 name\n",
          head + "file 0123456789abcdef 99999999999999999999 name\n",
          head + "file 0123456789abcdef 12 \n", head + "file 0123456789abcdef 12 ..\n",
          head + "file 0123456789abcdef 12 ../../etc/passwd\n"})
        EXPECT_FALSE(ModelManifest::parse(text)) << text;

    const auto odd = ModelManifest::parse(head + "property a -1\nproperty b 1x\nproperty c\n" +
                                          "property d 99999999999\n" + file);
    ASSERT_TRUE(odd);
    for (const auto* name : {"a", "b", "c", "d", "e"})
        EXPECT_FALSE(odd->number(name)) << name;
}

} // namespace
} // namespace mnemora
