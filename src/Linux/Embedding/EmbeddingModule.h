#pragma once
// The one door between the program and libmnemora-embedding.so, which it opens at the first text.

#include "Platform/SentenceModel.h"

#include <filesystem>
#include <memory>
#include <string>

namespace mnemora::embedding {

/// What the module needs to know. The files have been checked by then.
struct ModelFiles {
    std::filesystem::path model;     // an ONNX file of the BERT kind
    std::filesystem::path tokenizer; // its tokenizer.json
    int dimension = 0;               // of the vectors, as the model's manifest says
    /// Distinguishes this model from any other in the compiled-model cache.
    std::string identity;
    /// Where the compiled model is kept, in a folder that exists; empty for nowhere.
    std::filesystem::path compiled;
};

} // namespace mnemora::embedding

extern "C" {
/// Loads the model into `loaded`; leaves it null when that fails. Throws nothing.
[[gnu::visibility("default")]] void
mnemoraLoadSentenceModel(const mnemora::embedding::ModelFiles& files,
                         std::unique_ptr<mnemora::SentenceModel>& loaded);
}
