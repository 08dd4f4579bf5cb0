#include "Store/Embedder.h"

#include "Log.h"
#include "Platform/CoreServices.h"
#include "Text/Characters.h"

namespace mnemora {

NLSentenceEmbedder::NLSentenceEmbedder(const std::string& language)
    : emb_(coreServices().sentenceModel(language)) {
    if (!emb_)
        logError("NLEmbedding.sentenceEmbedding unavailable — semantic search disabled");
}

int NLSentenceEmbedder::dimension() const {
    return emb_ ? emb_->dimension() : 0;
}

bool NLSentenceEmbedder::isAvailable() const {
    return dimension() >= 1;
}

std::optional<std::vector<float>> NLSentenceEmbedder::embed(std::string_view text) {
    if (!emb_)
        return std::nullopt;
    const std::string_view basis = trimmed(firstCharacters(text, maxCharacters));
    if (basis.empty())
        return std::nullopt;
    const auto vector = emb_->vector(std::string(basis));
    if (!vector)
        return std::nullopt;
    std::vector<float> result;
    result.reserve(vector->size());
    for (const double element : *vector)
        result.push_back(static_cast<float>(element));
    return result;
}

} // namespace mnemora
