#include "Linux/Embedding/LazySentenceModel.h"

#include "Embedding/Golden.h"

#include <gtest/gtest.h>
#include <numeric>
#include <sys/stat.h>

namespace mnemora {
namespace {

using embedding::Folders;
using test::flipByte;
using test::TemporaryFolder;
namespace fs = std::filesystem;

constexpr std::string_view unavailable =
    "[mnemora][error] NLEmbedding.sentenceEmbedding unavailable — semantic search disabled\n";

/// The installed model as links in a folder of the test's own, so that single files can be taken
/// away or damaged. The libraries stay where they are: the runtime looks for its plugins where it
/// was first loaded from for as long as the process lives.
class SentenceModelTest : public ::testing::Test {
  protected:
    SentenceModelTest() { mirror(Folders::installed().model, folders.model); }

    /// Links to the libraries too, for tests that load none of them.
    void mirrorLibraries() {
        const auto installed = folders.libraries;
        folders.libraries = folder.path() / "lib";
        mirror(installed / "runtime", folders.libraries / "runtime");
        fs::create_symlink(installed / "libmnemora-embedding.so",
                           folders.libraries / "libmnemora-embedding.so");
    }

    static void mirror(const fs::path& from, const fs::path& to) {
        fs::create_directories(to);
        for (const auto& entry : fs::directory_iterator(from))
            fs::create_symlink(fs::canonical(entry.path()), to / entry.path().filename());
    }

    /// Puts a copy in the place of a link.
    static fs::path ownCopy(const fs::path& link) {
        const auto original = fs::canonical(link);
        fs::remove(link);
        fs::copy_file(original, link);
        fs::permissions(link, fs::perms::owner_write, fs::perm_options::add);
        return link;
    }

    [[nodiscard]] std::shared_ptr<SentenceModel> make() const {
        return makeSentenceModel("en", folders);
    }

    /// The model gives one line and no vector, now and later.
    static void expectUnusable(SentenceModel& model) {
        ::testing::internal::CaptureStderr();
        EXPECT_FALSE(model.vector("text"));
        EXPECT_FALSE(model.vector("another text"));
        EXPECT_EQ(::testing::internal::GetCapturedStderr(), unavailable);
        EXPECT_EQ(model.dimension(), 0);
    }

    TemporaryFolder folder;
    Folders folders{.model = folder.path() / "model",
                    .libraries = Folders::installed().libraries,
                    .cache = folder.path() / "home/.cache/mnemora"};
};

/// The folder of runtime libraries holds those of speech recognition too.
bool isSpeechRuntime(const std::string& name) {
    return name.find("sherpa") != std::string::npos ||
           name.find("onnxruntime") != std::string::npos;
}

double cosine(const std::vector<double>& a, const std::vector<double>& b) {
    const auto dot = [](const auto& x, const auto& y) {
        return std::inner_product(x.begin(), x.end(), y.begin(), 0.0);
    };
    return a.size() == b.size() ? dot(a, b) / std::sqrt(dot(a, a) * dot(b, b)) : 0;
}

TEST_F(SentenceModelTest, GivesThePublishersVectorsColdAndFromTheCache) {
    for (const auto* round : {"cold", "cached"}) {
        const auto model = make();
        ASSERT_TRUE(model);
        ASSERT_EQ(model->dimension(), 384);
        for (const auto& golden : test::goldenCases()) {
            const auto vector = model->vector(golden.text);
            ASSERT_TRUE(vector) << round;
            EXPECT_GT(cosine(*vector, golden.vector), 0.999) << round << ": " << golden.text;
            EXPECT_NEAR(cosine(*vector, *vector), 1, 1e-9);
        }
        struct stat file {};
        struct stat above {};
        ASSERT_EQ(stat((folders.cache / "embedding.compiled").c_str(), &file), 0) << round;
        ASSERT_EQ(stat(folders.cache.c_str(), &above), 0);
        EXPECT_EQ(file.st_mode & 0777U, 0600U);
        EXPECT_EQ(above.st_mode & 0777U, 0700U);
    }
}

TEST_F(SentenceModelTest, IsKnownWithoutLoadingAnything) {
    const auto model = make();
    ASSERT_TRUE(model);
    EXPECT_EQ(model->dimension(), 384);
    EXPECT_FALSE(fs::exists(folders.cache));
    EXPECT_FALSE(makeSentenceModel("de", folders));
}

TEST_F(SentenceModelTest, IsAbsentWhenAFileIsMissingOrOfAnotherSize) {
    mirrorLibraries();
    std::vector<fs::path> parts{folders.libraries / "libmnemora-embedding.so"};
    for (const auto& place : {folders.model, folders.libraries / "runtime"})
        for (const auto& entry : fs::directory_iterator(place))
            if (!isSpeechRuntime(entry.path().filename().string()))
                parts.push_back(entry.path());
    ASSERT_GE(parts.size(), 9U);
    for (const auto& part : parts) {
        const auto original = fs::canonical(part);
        fs::remove(part);
        EXPECT_FALSE(make()) << part;
        if (part.extension() != ".so" || part.parent_path() != folders.libraries) {
            test::writeFile(part, "short");
            EXPECT_FALSE(make()) << part;
            fs::remove(part);
        }
        fs::create_symlink(original, part);
        EXPECT_TRUE(make()) << part;
    }
}

TEST_F(SentenceModelTest, SaysOnceThatADamagedModelIsUnusable) {
    for (const auto* name : {"model.onnx", "tokenizer.json"}) {
        const auto path = ownCopy(folders.model / name);
        flipByte(path, static_cast<std::streamoff>(fs::file_size(path) / 2));
        const auto model = make();
        ASSERT_TRUE(model) << name;
        expectUnusable(*model);
        flipByte(path, static_cast<std::streamoff>(fs::file_size(path) / 2));
    }
    EXPECT_TRUE(make()->vector("whole again"));
}

TEST_F(SentenceModelTest, SaysOnceThatAModuleOrModelGoneSinceTheStartIsUnusable) {
    mirrorLibraries();
    const auto module = folders.libraries / "libmnemora-embedding.so";
    auto model = make();
    fs::remove(module);
    expectUnusable(*model);
    test::writeFile(module, "no library at all");
    expectUnusable(*make());
    fs::remove(module);
    // A library without the entry.
    fs::create_symlink(Folders::installed().libraries / "libmnemora-core.so", module);
    expectUnusable(*make());
    fs::remove(folders.model / "model.onnx");
    EXPECT_FALSE(make());
}

TEST_F(SentenceModelTest, RefusesAWholeModelOfAnotherKind) {
    // Right by its manifest, but no network, and one whose vectors have another length.
    auto manifest = *ModelManifest::read(folders.model / "manifest");
    fs::remove(folders.model / "manifest");
    manifest.properties["dimension"] = "768";
    test::writeFile(folders.model / "manifest", manifest.text());
    auto model = make();
    ASSERT_TRUE(model);
    EXPECT_EQ(model->dimension(), 768);
    expectUnusable(*model);

    fs::remove(folders.model / "model.onnx");
    test::writeFile(folders.model / "model.onnx", "no network");
    for (auto& file : manifest.files)
        file = *ModelManifest::describe(folders.model / file.name);
    test::writeFile(folders.model / "manifest", manifest.text());
    expectUnusable(*make());
}

TEST_F(SentenceModelTest, MakesADamagedCacheAnewAndLivesWithoutOne) {
    ASSERT_TRUE(make()->vector("text"));
    const auto compiled = folders.cache / "embedding.compiled";
    flipByte(compiled, static_cast<std::streamoff>(fs::file_size(compiled) / 2));
    const auto damaged = test::contentOf(compiled);
    ASSERT_TRUE(make()->vector("text"));
    EXPECT_FALSE(test::contentOf(compiled) == damaged);

    test::writeFile(folder.path() / "file", "");
    folders.cache = folder.path() / "file" / "cache";
    EXPECT_TRUE(make()->vector("text"));
}

} // namespace
} // namespace mnemora
