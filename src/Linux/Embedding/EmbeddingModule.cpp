#include "Linux/Embedding/EmbeddingModule.h"

#include "Linux/Embedding/MiniLMSentenceModel.h"

#include <exception>

void mnemoraLoadSentenceModel(const mnemora::embedding::ModelFiles& files,
                              std::unique_ptr<mnemora::SentenceModel>& loaded) {
    try {
        loaded = mnemora::embedding::MiniLMSentenceModel::create(files);
    } catch (const std::exception&) {
        loaded = nullptr;
    }
}
