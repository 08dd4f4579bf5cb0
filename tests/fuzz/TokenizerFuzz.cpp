// Fuzz target: the input once as a tokenizer.json, once as a text for the installed model's own
// tokenizer, whose path is in MNEMORA_TOKENIZER where it is set.

#include "Linux/Embedding/WordPieceTokenizer.h"

#include <cstdlib>
#include <fstream>
#include <iterator>

namespace {

using mnemora::embedding::WordPieceTokenizer;

constexpr std::size_t maxTokens = 256;

std::optional<WordPieceTokenizer> installed() {
    const char* path = std::getenv("MNEMORA_TOKENIZER");
    std::ifstream file(path != nullptr ? path : "");
    const std::string json{std::istreambuf_iterator<char>(file), {}};
    return WordPieceTokenizer::create(json);
}

void check(const WordPieceTokenizer& tokenizer, std::string_view text) {
    const auto around = tokenizer.encode("", maxTokens).size();
    const auto ids = tokenizer.encode(text, maxTokens);
    if (ids.size() > std::max(maxTokens, around))
        std::abort();
    for (const auto id : ids)
        if (id < 0 || id >= tokenizer.vocabularySize())
            std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const auto own = installed();
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    if (own)
        check(*own, input);
    if (const auto read = WordPieceTokenizer::create(input)) {
        check(*read, input);
        check(*read, "Hello w\xC3\xB6rld \xE6\xBC\xA2\xE5\xAD\x97 [CLS]!");
    }
    return 0;
}
