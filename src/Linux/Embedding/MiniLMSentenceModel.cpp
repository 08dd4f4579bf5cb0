#include "Linux/Embedding/MiniLMSentenceModel.h"

#include <cmath>
#include <fstream>
#include <iterator>
#include <malloc.h>
#include <numeric>

namespace mnemora::embedding {
namespace {

/// A few lengths, since the runtime prepares its kernels anew for each that it meets.
constexpr std::size_t paddedLengths[] = {16, 32, 64, 128, 192, MiniLMSentenceModel::maxTokens};

std::size_t paddedLength(std::size_t length) {
    for (const auto padded : paddedLengths)
        if (length <= padded)
            return padded;
    return MiniLMSentenceModel::maxTokens;
}

std::optional<WordPieceTokenizer> readTokenizer(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    const std::string json{std::istreambuf_iterator<char>(file), {}};
    return WordPieceTokenizer::create(json);
}

/// The mean of the rows, scaled to length 1; absent when the model answered with no finite number.
std::optional<std::vector<double>> pooled(std::span<const float> rows, std::size_t width) {
    std::vector<double> mean(width, 0.0);
    for (std::size_t at = 0; at < rows.size(); ++at)
        mean[at % width] += static_cast<double>(rows[at]);
    const double length =
        std::sqrt(std::inner_product(mean.begin(), mean.end(), mean.begin(), 0.0));
    if (!std::isfinite(length) || length == 0)
        return std::nullopt;
    // Scaling to length 1 takes the division by the number of rows along.
    for (double& element : mean)
        element /= length;
    return mean;
}

} // namespace

std::unique_ptr<SentenceModel> MiniLMSentenceModel::create(const ModelFiles& files) {
    auto tokenizer = readTokenizer(files.tokenizer);
    if (!tokenizer)
        return nullptr;
    auto runner = TransformerRunner::create(files);
    // Parsing and compiling leave some megabytes of freed memory behind.
    malloc_trim(0);
    if (!runner)
        return nullptr;
    return std::make_unique<MiniLMSentenceModel>(std::move(*tokenizer), std::move(runner));
}

std::optional<std::vector<double>> MiniLMSentenceModel::vector(const std::string& text) {
    try {
        auto ids = tokenizer_.encode(text, maxTokens);
        const auto length = ids.size();
        ids.resize(paddedLength(length), tokenizer_.padding());
        const auto states = runner_->run(ids, length);
        return pooled(states, static_cast<std::size_t>(dimension()));
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

} // namespace mnemora::embedding
