#include "Linux/Embedding/LazySentenceModel.h"

#include "Linux/Embedding/EmbeddingModule.h"
#include "Log.h"
#include "Support/Installation.h"
#include "Support/Module.h"
#include "Support/UserFolders.h"

#include <exception>

namespace mnemora::embedding {
namespace {

constexpr const char* moduleName = "libmnemora-embedding.so";
constexpr const char* modelName = "model.onnx";
constexpr const char* tokenizerName = "tokenizer.json";

bool runtimeIsThere(const std::filesystem::path& libraries) {
    const auto runtime = libraries / "runtime";
    const auto manifest = ModelManifest::read(runtime / "openvino.manifest");
    return manifest && manifest->sizesMatch(runtime);
}

bool modelIsThere(const ModelManifest& manifest, const std::filesystem::path& folder) {
    return manifest.lists(modelName) && manifest.lists(tokenizerName) &&
           manifest.number("dimension").value_or(0) > 0 && manifest.sizesMatch(folder);
}

} // namespace

Folders Folders::installed() {
    return {.model = installation::data() / "models/embedding",
            .libraries = installation::libraries(),
            .cache = userFolders::cache()};
}

std::optional<std::vector<double>> LazySentenceModel::vector(const std::string& text) {
    if (!tried_) {
        tried_ = true;
        loaded_ = load();
        if (!loaded_) {
            logError("NLEmbedding.sentenceEmbedding unavailable — semantic search disabled");
            dimension_ = 0;
        }
    }
    return loaded_ ? loaded_->vector(text) : std::nullopt;
}

std::unique_ptr<SentenceModel> LazySentenceModel::load() const {
    std::unique_ptr<SentenceModel> model;
    if (!manifest_.digestsMatch(folders_.model))
        return model;
    const auto module = Module::open(folders_.libraries / moduleName);
    auto* loadModel =
        module ? module->function<decltype(mnemoraLoadSentenceModel)>("mnemoraLoadSentenceModel")
               : nullptr;
    if (loadModel == nullptr)
        return model;
    ModelFiles files{.model = folders_.model / modelName,
                     .tokenizer = folders_.model / tokenizerName,
                     .dimension = dimension_,
                     .identity = manifest_.text(),
                     .compiled = {}};
    // Without a cache the model is compiled at every start, which costs time only.
    if (userFolders::makePrivate(folders_.cache))
        files.compiled = folders_.cache / "embedding.compiled";
    loadModel(files, model);
    return model;
}

} // namespace mnemora::embedding

namespace mnemora {

std::shared_ptr<SentenceModel> makeSentenceModel(const std::string& language,
                                                 const embedding::Folders& folders) {
    std::error_code failed;
    if (language != "en")
        return nullptr;
    auto manifest = ModelManifest::read(folders.model / "manifest");
    if (!manifest || !embedding::modelIsThere(*manifest, folders.model) ||
        !std::filesystem::is_regular_file(folders.libraries / embedding::moduleName, failed) ||
        !embedding::runtimeIsThere(folders.libraries))
        return nullptr;
    const int dimension = *manifest->number("dimension");
    return std::make_shared<embedding::LazySentenceModel>(folders, std::move(*manifest), dimension);
}

} // namespace mnemora
