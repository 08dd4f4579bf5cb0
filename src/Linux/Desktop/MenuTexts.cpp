#include "Linux/Desktop/MenuTexts.h"

namespace mnemora::desktop {

QString shownTitle(const std::string& title) {
    auto text = QString::fromStdString(title);
    for (auto& character : text)
        if (character.category() == QChar::Other_Control ||
            character.category() == QChar::Separator_Line ||
            character.category() == QChar::Separator_Paragraph)
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
