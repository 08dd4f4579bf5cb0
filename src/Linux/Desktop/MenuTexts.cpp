#include "Linux/Desktop/MenuTexts.h"

namespace mnemora::desktop {

namespace {

/// More than a menu of any width shows. What counts as one character may carry any number of marks.
constexpr qsizetype longestTitle = 300;

/// Breaks the line, or turns round what follows (UAX #9): a menu would show another one's words.
bool isCommand(QChar character) {
    const auto value = character.unicode();
    return character.category() == QChar::Other_Control || (value >= 0x2028 && value <= 0x202E) ||
           (value >= 0x2066 && value <= 0x2069);
}

} // namespace

QString shownTitle(const std::string& title) {
    auto text = QString::fromStdString(title);
    if (text.size() > longestTitle) {
        text.truncate(longestTitle - 1);
        if (text.back().isHighSurrogate()) // half a character
            text.chop(1);
        text += QChar(0x2026);
    }
    for (auto& character : text)
        if (isCommand(character))
            character = u' ';
    return text;
}

QString toolkitTitle(const std::string& title) {
    return shownTitle(title).replace(u'&', QStringLiteral("&&"));
}

QString busTitle(const std::string& title) {
    return shownTitle(title).replace(u'_', QStringLiteral("__"));
}

} // namespace mnemora::desktop
