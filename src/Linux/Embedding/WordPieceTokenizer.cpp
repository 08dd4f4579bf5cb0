#include "Linux/Embedding/WordPieceTokenizer.h"

#include <algorithm>

namespace mnemora::embedding {
namespace {

bool continuesCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

std::size_t countCharacters(std::string_view word) {
    return word.size() -
           static_cast<std::size_t>(std::count_if(word.begin(), word.end(), continuesCharacter));
}

} // namespace

std::vector<std::int64_t> WordPieceTokenizer::encode(std::string_view text,
                                                     std::size_t maxTokens) const {
    const auto around = before_.size() + after_.size();
    const auto limit = before_.size() + (maxTokens > around ? maxTokens - around : 0);
    Ids ids = before_;
    while (!text.empty() && ids.size() < limit) {
        const auto found = nextAdded(text);
        appendText(ids, text.substr(0, found ? found->at : text.size()), limit);
        if (!found)
            break;
        ids.push_back(found->token->id);
        text.remove_prefix(found->at + found->token->content.size());
    }
    ids.resize(std::min(ids.size(), limit));
    ids.insert(ids.end(), after_.begin(), after_.end());
    return ids;
}

std::optional<WordPieceTokenizer::Occurrence>
WordPieceTokenizer::nextAdded(std::string_view text) const {
    std::optional<Occurrence> first;
    for (const auto& token : added_) {
        // Up to where the best one so far begins; of two at the same place the longer one counts.
        const auto area = first ? text.substr(0, first->at + token.content.size()) : text;
        const auto at = area.find(token.content);
        if (at == std::string_view::npos)
            continue;
        if (!first || at < first->at || token.content.size() > first->token->content.size())
            first = Occurrence{.at = at, .token = &token};
    }
    return first;
}

void WordPieceTokenizer::appendText(Ids& ids, std::string_view text, std::size_t limit) const {
    if (text.empty())
        return;
    for (const auto& word : bertWords(text, normalization_)) {
        if (ids.size() >= limit)
            return;
        appendWord(ids, word);
    }
}

void WordPieceTokenizer::appendWord(Ids& ids, std::string_view word) const {
    const auto begin = ids.size();
    bool known = countCharacters(word) <= maxCharactersPerWord_;
    const Pieces* pieces = &initial_;
    while (known && !word.empty()) {
        // The longest entry that the rest begins with.
        auto length = word.size();
        auto entry = pieces->find(word);
        while (entry == pieces->end() && length > 0) {
            do
                --length;
            while (length > 0 && continuesCharacter(word[length]));
            if (length > 0)
                entry = pieces->find(word.substr(0, length));
        }
        known = length > 0;
        if (known)
            ids.push_back(entry->second);
        word.remove_prefix(length);
        pieces = &continuing_;
    }
    if (!known) {
        ids.resize(begin);
        ids.push_back(unknown_);
    }
}

} // namespace mnemora::embedding
