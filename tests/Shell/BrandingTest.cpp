#include "Shell/Branding.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <map>
#include <string>

namespace mnemora {
namespace {

/// A path in few characters: "M1,2 L3,4 C...".
std::string written(const VectorPath& path) {
    std::string text;
    const auto add = [&text](char letter, std::initializer_list<PathPoint> points) {
        text += text.empty() ? "" : " ";
        text += letter;
        for (const PathPoint& point : points)
            text += std::to_string(std::lround(point.x)) + "," +
                    std::to_string(std::lround(point.y)) + ";";
    };
    for (const PathElement& each : path)
        switch (each.kind) {
        case PathElement::Kind::move:
            add('M', {each.end});
            break;
        case PathElement::Kind::line:
            add('L', {each.end});
            break;
        case PathElement::Kind::curve:
            add('C', {each.control1, each.control2, each.end});
            break;
        case PathElement::Kind::close:
            add('Z', {});
        }
    return text;
}

TEST(Branding, ReadsPathData) {
    const std::map<std::string, std::string> cases = {
        {"M0 0 10 0 10 10 Z", "M0,0; L10,0; L10,10; Z"},
        {"M1,2\nL+5,-5\r\nH 7 8 V-9", "M1,2; L5,-5; L7,-5; L8,-5; L8,-9;"},
        {"M1 2C1 1 2 2 3 3 4 4 5 5 6 6", "M1,2; C1,1;2,2;3,3; C4,4;5,5;6,6;"},
        {"M5 5 L9 9 z H7", "M5,5; L9,9; Z L7,5;"},
        {"M.6 2.", "M1,2;"},
        // What isn't drawn, and the numbers behind it.
        {"M1 1 l5 5 S1 2 3 4 L2 2", "M1,1; L2,2;"},
        {"M1 1 Z 4 4 5 L2 2", "M1,1; Z L2,2;"},
        {"3 4 M1 1", "M1,1;"},
        {"M1 1 \xC3\xA9 5 5 L2 2", "M1,1; L2,2;"},
        // Too few numbers, or none at all.
        {"M1 C1 2 3 L2 2", "L2,2;"},
        {"M", ""},
        {"", ""},
        {"M1 1 L1.2.3 4 L- 3 L2 2", "M1,1; L2,2;"},
        {"M1 1 L\t2 2", "M1,1; L2,2;"},
        {"M1 1 #### L2 2", "M1,1; L2,2;"},
        {"L1" + std::string(400, '0') + " 1 M2 2", "M2,2;"},
    };
    for (const auto& [data, path] : cases)
        EXPECT_EQ(written(Branding::parsePath(data)), path) << data;
}

TEST(Branding, EndsOnAnyText) {
    std::string text;
    for (unsigned seed = 1; seed < 4000; ++seed) {
        text += "MLHVCZzQ -+.,\n\t019#\xC3\xA9"[(seed * 2654435761U >> 11) % 22];
        (void)Branding::tightBounds(Branding::parsePath(text));
    }
}

TEST(Branding, TheMarkIsTwoClosedOutlinesOfTheAgreedMake) {
    const std::string_view data = Branding::markPathData;
    EXPECT_EQ(data.size(), 2912U);
    const auto letters = [data](char letter) { return std::ranges::count(data, letter); };
    EXPECT_EQ(letters('M'), 2);
    EXPECT_EQ(letters('C'), 64);
    EXPECT_EQ(letters('L'), 20);
    EXPECT_EQ(letters('H'), 2);
    EXPECT_EQ(letters('Z'), 2);
    EXPECT_EQ(data.find_first_not_of("MCLHZ0123456789. "), std::string_view::npos);
    const auto& path = Branding::mnemoraPath();
    EXPECT_EQ(path.size(), 90U);
    for (const PathElement& each : path) {
        if (each.kind == PathElement::Kind::close)
            continue;
        const bool isCurve = each.kind == PathElement::Kind::curve;
        for (const PathPoint& point :
             {each.end, isCurve ? each.control1 : each.end, isCurve ? each.control2 : each.end}) {
            EXPECT_TRUE(point.x >= 19.28 && point.x <= 130.138) << point.x;
            EXPECT_TRUE(point.y >= 59.76 && point.y <= 151.98) << point.y;
        }
    }
}

TEST(Branding, BoundsFollowCurvesAndNotTheirControlPoints) {
    const auto bounds = Branding::tightBounds(Branding::parsePath("M0 0 C0 40 30 -20 30 0"));
    ASSERT_TRUE(bounds);
    EXPECT_NEAR(bounds->left, 0, 1e-9);
    EXPECT_NEAR(bounds->width, 30, 1e-9);
    // The extremes of y(t) = 120 t - 300 t^2 + 180 t^3.
    EXPECT_NEAR(bounds->top, -4.2075, 1e-3);
    EXPECT_NEAR(bounds->height, 18.2916, 1e-3);
    EXPECT_FALSE(Branding::tightBounds({}));
}

TEST(Branding, FitsTheMarkIntoASquareUpsideDown) {
    for (const double size : {16.0, 18.0, 22.0, 256.0}) {
        const auto bounds = Branding::tightBounds(Branding::menuBarPath(size));
        ASSERT_TRUE(bounds);
        EXPECT_NEAR(bounds->left, size * 0.06, 1e-9);
        EXPECT_NEAR(bounds->width, size * 0.88, 1e-9);
        EXPECT_LT(bounds->height, bounds->width);
        EXPECT_NEAR(bounds->top + bounds->height / 2, size / 2, 1e-9);
    }
    // The first point lies high in the picture.
    EXPECT_GT(Branding::menuBarPath(18).front().end.y, 9);
    EXPECT_EQ(Branding::menuBarPath(0), Branding::mnemoraPath());
}

} // namespace
} // namespace mnemora
