#include "Recall/PlainRecall.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

namespace mnemora::test {
namespace {

using Words = std::vector<std::u32string>;

std::u32string codePoints(const std::string& text) {
    const auto wide = icu::UnicodeString::fromUTF8(text);
    std::u32string points;
    for (std::int32_t i = 0; i < wide.length(); i = wide.moveIndex32(i, 1))
        points += static_cast<char32_t>(wide.char32At(i));
    return points;
}

/// A letter as the index folds it: lower case, without the marks that Latin letters carry.
std::u32string folded(char32_t c) {
    const auto category = u_charType(static_cast<UChar32>(c));
    if (category == U_NON_SPACING_MARK && c < 0x370)
        return {};
    UErrorCode status = U_ZERO_ERROR;
    icu::UnicodeString parts;
    const auto* form = icu::Normalizer2::getNFDInstance(status);
    const UChar32 lower = u_tolower(static_cast<UChar32>(c));
    if (lower < 0x250 && form->getDecomposition(lower, parts))
        return {static_cast<char32_t>(parts.char32At(0))};
    return {static_cast<char32_t>(lower)};
}

/// Words by the index's rule: letters, numbers and private-use characters.
Words indexWords(const std::string& text) {
    Words words(1);
    for (const char32_t c : codePoints(text)) {
        const auto category = u_charType(static_cast<UChar32>(c));
        const bool isMark = category == U_NON_SPACING_MARK && !words.back().empty() && c < 0x370;
        const bool isWord = u_isalpha(static_cast<UChar32>(c)) != 0 ||
                            category == U_DECIMAL_DIGIT_NUMBER || category == U_LETTER_NUMBER ||
                            category == U_OTHER_NUMBER || isMark;
        if (isWord)
            words.back() += folded(c);
        else if (!words.back().empty())
            words.emplace_back();
    }
    if (words.back().empty())
        words.pop_back();
    return words;
}

std::size_t occurrences(const Words& words, const Words& phrase) {
    std::size_t found = 0;
    for (std::size_t i = 0; i + phrase.size() <= words.size(); ++i)
        found += std::equal(phrase.begin(), phrase.end(), words.begin() + static_cast<long>(i));
    return found;
}

std::vector<std::int64_t> best(std::vector<std::pair<double, std::int64_t>> scored,
                               std::size_t limit) {
    std::stable_sort(scored.begin(), scored.end(),
                     [](const auto& a, const auto& b) { return a.first > b.first; });
    std::vector<std::int64_t> ids;
    for (const auto& [score, id] : scored)
        if (ids.size() < limit)
            ids.push_back(id);
    return ids;
}

} // namespace

std::vector<std::int64_t> PlainRecall::keywordRanking(const std::string& query,
                                                      std::size_t limit) const {
    const double k1 = 1.2;
    const double b = 0.75;
    struct Document {
        std::int64_t id;
        std::vector<Words> columns;
        double length = 0;
    };
    std::vector<Document> documents;
    double total = 0;
    for (const PlainEvent& entry : events_) {
        Document document{.id = entry.id, .columns = {}};
        for (const auto* field : {&entry.event.title, &entry.event.body, &entry.event.person}) {
            document.columns.push_back(indexWords(field->value_or("")));
            document.length += static_cast<double>(document.columns.back().size());
        }
        total += document.length;
        documents.push_back(std::move(document));
    }
    const double count = static_cast<double>(documents.size());
    std::map<std::int64_t, double> scores;
    for (const auto& word : indexWords(query)) {
        const auto frequency = [&](const Document& document) {
            std::size_t found = 0;
            for (const Words& column : document.columns)
                found += occurrences(column, {word});
            return static_cast<double>(found);
        };
        double holders = 0;
        for (const Document& document : documents)
            holders += frequency(document) > 0;
        const double idf = std::max(std::log((count - holders + 0.5) / (holders + 0.5)), 1e-6);
        for (const Document& document : documents)
            if (const double f = frequency(document); f > 0)
                scores[document.id] +=
                    idf *
                    ((f * (k1 + 1)) / (f + k1 * (1 - b + b * document.length / (total / count))));
    }
    std::vector<std::pair<double, std::int64_t>> scored;
    for (const auto& [id, score] : scores)
        scored.emplace_back(score, id);
    return best(std::move(scored), limit);
}

std::vector<std::int64_t> PlainRecall::semanticRanking(const std::vector<float>& query,
                                                       std::size_t limit) const {
    std::vector<std::pair<double, std::int64_t>> scored;
    for (const PlainEvent& entry : events_) {
        if (entry.vector.empty())
            continue;
        // Sums of small whole numbers are exact in single precision, whatever their order.
        float dot = 0;
        float left = 0;
        float right = 0;
        for (std::size_t i = 0; i < query.size(); ++i) {
            dot += query[i] * entry.vector[i];
            left += query[i] * query[i];
            right += entry.vector[i] * entry.vector[i];
        }
        const float norms = std::sqrt(left) * std::sqrt(right);
        scored.emplace_back(norms > 0 ? dot / norms : 0, entry.id);
    }
    return best(std::move(scored), limit);
}

std::vector<std::int64_t> PlainRecall::search(const std::string& query,
                                              const std::vector<float>& vector,
                                              std::size_t limit) const {
    const std::size_t candidates = std::max<std::size_t>(2 * limit, 30);
    const auto keywords = keywordRanking(query, candidates);
    const auto meanings =
        vector.empty() ? std::vector<std::int64_t>() : semanticRanking(vector, candidates);
    std::vector<std::int64_t> order;
    std::map<std::int64_t, double> fused;
    for (const auto* ranking : {&keywords, &meanings})
        for (std::size_t rank = 1; rank <= ranking->size(); ++rank) {
            const std::int64_t id = (*ranking)[rank - 1];
            if (!fused.contains(id))
                order.push_back(id);
            fused[id] += 1.0 / (60.0 + static_cast<double>(rank));
        }
    std::vector<std::pair<double, std::int64_t>> scored;
    for (const std::int64_t id : order)
        scored.emplace_back(fused[id], id);
    return best(std::move(scored), limit);
}

} // namespace mnemora::test
