#include "Linux/Desktop/MenuTexts.h"

#include <gtest/gtest.h>

namespace mnemora::desktop {
namespace {

TEST(MenuTexts, ShowATitleInOneLineAndItsOwnSigns) {
    const std::string hostile = "a\nQuit\r\x1B\u009B\u2028\u2029\x7F\u202E\u2067 & _b";
    EXPECT_EQ(shownTitle(hostile).toStdString(), "a Quit         & _b");
    EXPECT_EQ(toolkitTitle(hostile).toStdString(), "a Quit         && _b");
    EXPECT_EQ(busTitle(hostile).toStdString(), "a Quit         & __b");
    const std::string endless = "e" + std::string(100'000, '.');
    EXPECT_LE(shownTitle(endless).size(), 300);
    EXPECT_TRUE(shownTitle(endless).startsWith(QStringLiteral("e...")));
    std::string faces; // of two UTF-16 units each
    for (int i = 0; i < 200; ++i)
        faces += "\U0001F600";
    EXPECT_EQ(shownTitle(faces).toStdString(), faces.substr(0, 149UL * 4) + "\u2026");
}

} // namespace
} // namespace mnemora::desktop
