#include "Engines/Speech/EchoWords.h"

#include <algorithm>
#include <cctype>
#include <utility>
#include <vector>

namespace mnemora::engines::speech {
namespace {

/// Two words in a row may be said by two people at once; three are rarely.
constexpr std::size_t fewestWords = 3;
/// A recogniser spells what it heard badly in more or fewer words than were said.
constexpr std::size_t spareWords = 1;

/// A word in lower case without punctuation, and the stretch of the text that it stands in.
struct Word {
    std::string letters;
    std::size_t from = 0;
    std::size_t to = 0;
};
using Words = std::vector<Word>;

Words wordsOf(const std::string& text) {
    Words words;
    Word word;
    for (std::size_t at = 0; at <= text.size(); ++at) {
        const auto byte = static_cast<unsigned char>(at < text.size() ? text[at] : ' ');
        if (std::isspace(byte) == 0) {
            if (std::isalnum(byte) != 0 || byte >= 0x80)
                word.letters += static_cast<char>(std::tolower(byte));
            continue;
        }
        word.to = at;
        if (!word.letters.empty())
            words.push_back(word);
        word = {.letters = {}, .from = at + 1, .to = 0};
    }
    return words;
}

/// Equal but for an ending.
bool isNearly(const std::string& a, const std::string& b) {
    const auto [endOfA, endOfB] = std::ranges::mismatch(a, b);
    const auto common = static_cast<std::size_t>(endOfA - a.begin());
    const auto longer = std::max(a.size(), b.size());
    return common == longer || (common >= 4 && 3 * common >= 2 * longer);
}

/// Words that two texts share, in order and with few others between: half-open ranges of both.
struct Run {
    int score = 0;
    std::size_t matches = 0;
    std::size_t heardFrom = 0;
    std::size_t heardTo = 0;
    std::size_t playedFrom = 0;
    std::size_t playedTo = 0;
};

/// The best local alignment (Smith and Waterman, "Identification of common molecular
/// subsequences", 1981).
Run bestRun(const Words& heard, const Words& played) {
    constexpr int match = 2;
    constexpr int fault = -1;
    Run best;
    std::vector<Run> row(played.size() + 1);
    for (std::size_t i = 0; i < heard.size(); ++i) {
        Run diagonal = row[0];
        for (std::size_t j = 0; j < played.size(); ++j) {
            const bool isSame = isNearly(heard[i].letters, played[j].letters);
            Run run = diagonal;
            if (run.score == 0)
                run = {.heardFrom = i, .playedFrom = j};
            run.score += isSame ? match : fault;
            run.matches += isSame ? 1 : 0;
            for (const Run* gap : {&row[j + 1], &row[j]})
                if (gap->score + fault > run.score) {
                    run = *gap;
                    run.score += fault;
                }
            if (run.score <= 0)
                run = {};
            run.heardTo = i + 1;
            run.playedTo = j + 1;
            diagonal = std::exchange(row[j + 1], run);
            if (run.score > best.score)
                best = run;
        }
    }
    return best;
}

bool isEcho(const Run& run, const Words& heard, const Words& played) {
    const bool isWhole = run.matches == heard.size() && run.matches == played.size();
    return run.matches >= fewestWords || (isWhole && run.matches > 0);
}

/// Whether words beside the echo are the rest of it, misheard: the loudspeakers said about as many
/// there.
bool isMisheard(std::size_t heard, std::size_t played) {
    return heard == 0 || (played > 0 && heard <= played + spareWords);
}

} // namespace

std::string withoutEcho(const std::string& heard, const std::string& played) {
    const auto mine = wordsOf(heard);
    const auto theirs = wordsOf(played);
    const auto run = bestRun(mine, theirs);
    if (!isEcho(run, mine, theirs))
        return heard;
    std::string rest;
    if (!isMisheard(run.heardFrom, run.playedFrom))
        rest = heard.substr(0, mine[run.heardFrom - 1].to);
    if (!isMisheard(mine.size() - run.heardTo, theirs.size() - run.playedTo))
        rest += (rest.empty() ? "" : " ") + heard.substr(mine[run.heardTo].from);
    return rest;
}

} // namespace mnemora::engines::speech
