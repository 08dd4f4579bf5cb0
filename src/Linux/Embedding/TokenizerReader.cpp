#include "Linux/Embedding/TokenizerReader.h"

#include <algorithm>

namespace mnemora::embedding {
namespace {

using Json = nlohmann::json;

/// Beyond any model in use; keeps numbers away from the edges of their types.
constexpr std::int64_t maxVocabulary = 10'000'000;
constexpr std::size_t maxPartSize = 1000;

bool isType(const Json& part, const char* type) {
    return part.is_object() && part.value("type", std::string()) == type;
}

bool isId(const Json& value) {
    return value.is_number_unsigned() &&
           value.get<std::uint64_t>() < static_cast<std::uint64_t>(maxVocabulary);
}

} // namespace

std::optional<WordPieceTokenizer> WordPieceTokenizer::create(std::string_view json) {
    try {
        const auto document = Json::parse(json, nullptr, false);
        if (!document.is_object())
            return std::nullopt;
        return TokenizerReader(document).read();
    } catch (const std::exception&) {
        // A missing member, another type than expected, or no memory for all of it.
        return std::nullopt;
    }
}

std::optional<WordPieceTokenizer> TokenizerReader::read() {
    if (!isType(document_.at("pre_tokenizer"), "BertPreTokenizer"))
        return std::nullopt;
    // The order matters: names of special tokens are looked up in what was read before.
    if (readNormalizer() && readAddedTokens() && readModel() && readTemplate() && readPadding())
        return std::move(tokenizer_);
    return std::nullopt;
}

bool TokenizerReader::readNormalizer() {
    const auto& normalizer = document_.at("normalizer");
    if (!isType(normalizer, "BertNormalizer"))
        return false;
    auto& steps = tokenizer_.normalization_;
    steps.cleanText = normalizer.at("clean_text").get<bool>();
    steps.chineseChars = normalizer.at("handle_chinese_chars").get<bool>();
    steps.lowercase = normalizer.at("lowercase").get<bool>();
    // Left open, accents go where case goes.
    const auto& accents = normalizer.at("strip_accents");
    steps.stripAccents = accents.is_null() ? steps.lowercase : accents.get<bool>();
    return true;
}

bool TokenizerReader::readAddedTokens() {
    for (const auto& token : document_.at("added_tokens")) {
        const auto content = token.at("content").get<std::string>();
        const bool plain = !token.at("single_word").get<bool>() &&
                           !token.at("lstrip").get<bool>() && !token.at("rstrip").get<bool>() &&
                           !token.at("normalized").get<bool>();
        if (!plain || content.empty() || content.size() > maxPartSize || !isId(token.at("id")) ||
            tokenizer_.added_.size() == maxPartSize)
            return false;
        tokenizer_.added_.push_back({content, token.at("id").get<std::int64_t>()});
    }
    for (const auto& token : tokenizer_.added_)
        tokenizer_.vocabularySize_ = std::max(tokenizer_.vocabularySize_, token.id + 1);
    return true;
}

bool TokenizerReader::readModel() {
    const auto& model = document_.at("model");
    const auto& limit = model.at("max_input_chars_per_word");
    if (!isType(model, "WordPiece") || !limit.is_number_unsigned())
        return false;
    // A word is tried against the vocabulary once a character and piece, so this bounds the work.
    tokenizer_.maxCharactersPerWord_ = std::min(limit.get<std::size_t>(), maxPartSize);
    const auto prefix = model.at("continuing_subword_prefix").get<std::string>();
    if (!readVocabulary(model.at("vocab"), prefix))
        return false;
    const auto unknown = idOf(model.at("unk_token").get<std::string>());
    tokenizer_.unknown_ = unknown.value_or(0);
    return unknown.has_value();
}

bool TokenizerReader::readVocabulary(const Json& vocabulary, std::string_view prefix) {
    if (!vocabulary.is_object())
        return false;
    std::size_t size = 0;
    for (const auto& [piece, id] : vocabulary.items()) {
        if (!isId(id))
            return false;
        size += piece.size();
    }
    // No growth after this point: the keys point into it.
    tokenizer_.characters_.reserve(size);
    tokenizer_.initial_.reserve(vocabulary.size());
    for (const auto& [piece, number] : vocabulary.items()) {
        const auto id = number.get<std::int64_t>();
        auto& characters = tokenizer_.characters_;
        const auto at = characters.size();
        characters.insert(characters.end(), piece.begin(), piece.end());
        const std::string_view entry(characters.data() + at, piece.size());
        tokenizer_.initial_.emplace(entry, id);
        if (entry.size() > prefix.size() && entry.starts_with(prefix))
            tokenizer_.continuing_.emplace(entry.substr(prefix.size()), id);
        tokenizer_.vocabularySize_ = std::max(tokenizer_.vocabularySize_, id + 1);
    }
    return true;
}

bool TokenizerReader::readTemplate() {
    const auto& processor = document_.at("post_processor");
    if (!isType(processor, "TemplateProcessing") || processor.at("single").size() > maxPartSize)
        return false;
    bool afterText = false;
    for (const auto& part : processor.at("single")) {
        if (part.contains("Sequence")) {
            if (afterText)
                return false;
            afterText = true;
            continue;
        }
        const auto id = idOf(part.at("SpecialToken").at("id").get<std::string>());
        if (!id)
            return false;
        (afterText ? tokenizer_.after_ : tokenizer_.before_).push_back(*id);
    }
    return afterText;
}

bool TokenizerReader::readPadding() {
    const auto padding = document_.find("padding");
    if (padding == document_.end() || padding->is_null())
        return true;
    const auto& id = padding->at("pad_id");
    if (!isId(id) || id.get<std::int64_t>() >= tokenizer_.vocabularySize_)
        return false;
    tokenizer_.padding_ = id.get<std::int64_t>();
    return true;
}

std::optional<std::int64_t> TokenizerReader::idOf(const std::string& token) const {
    for (const auto& added : tokenizer_.added_)
        if (added.content == token)
            return added.id;
    const auto entry = tokenizer_.initial_.find(token);
    if (entry == tokenizer_.initial_.end())
        return std::nullopt;
    return entry->second;
}

} // namespace mnemora::embedding
