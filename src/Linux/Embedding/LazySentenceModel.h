#pragma once
// The sentence model as the program sees it: known to be there from a few cheap looks at the disk,
// loaded at the first text. Part of the executable; holds nothing of the inference runtime.

#include "Linux/Engines/ModelManifest.h"
#include "Platform/SentenceModel.h"

#include <filesystem>

namespace mnemora::embedding {

/// Where the model's parts lie; by default those of this installation and this user.
struct Folders {
    std::filesystem::path model;     // with "manifest", model.onnx and tokenizer.json
    std::filesystem::path libraries; // with libmnemora-embedding.so and runtime/
    std::filesystem::path cache;     // the user's own, made when it is needed

    [[nodiscard]] static Folders installed();
};

/// Checks the digests of the model's files and loads it at the first text. When that fails it logs
/// one error line, and from then on its dimension is 0 and its vectors are absent. One thread at a
/// time.
class LazySentenceModel final : public SentenceModel {
  public:
    LazySentenceModel(Folders folders, ModelManifest manifest, int dimension)
        : folders_(std::move(folders)), manifest_(std::move(manifest)), dimension_(dimension) {}

    [[nodiscard]] int dimension() const override { return dimension_; }
    [[nodiscard]] std::optional<std::vector<double>> vector(const std::string& text) override;

  private:
    [[nodiscard]] std::unique_ptr<SentenceModel> load() const;

    const Folders folders_;
    const ModelManifest manifest_;
    int dimension_;
    bool tried_ = false;
    std::unique_ptr<SentenceModel> loaded_;
};

} // namespace mnemora::embedding

namespace mnemora {

/// The sentence model for a language ("en"). Null when there is none for it: another language, or
/// any file of model, module or runtime is missing or has another size than at build time. Opens
/// no library and no weights. Throws nothing.
[[nodiscard]] std::shared_ptr<SentenceModel>
makeSentenceModel(const std::string& language,
                  const embedding::Folders& folders = embedding::Folders::installed());

} // namespace mnemora
