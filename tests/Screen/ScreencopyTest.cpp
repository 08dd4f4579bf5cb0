// Pictures by a compositor's own protocol, from one that hangs or lies.

#include "Linux/Screen/Screencopy.h"

#include "Wayland/FakeCompositor.h"
#include "fakes/ProcessUse.h"

#include <gtest/gtest.h>

namespace mnemora::wayland {
namespace {

constexpr FakeCompositor::Offer screenOnly{.toplevels = false, .screencopy = true};

TEST(Screencopy, TakesNoPictureFromACompositorThatLiesOrHangsAndTheNextOnceItDoesNot) {
    FakeCompositor compositor(screenOnly);
    Screencopy screencopy;
    ASSERT_TRUE(screencopy.picture());
    auto before = test::ProcessUse::now();
    constexpr auto huge = std::uint32_t{1} << 31;
    const std::vector<std::pair<const char*, FakeCompositor::Copy>> lies = {
        {"unknown pixels", {.format = 7}},
        {"nothing at all", {.width = 0, .height = 0, .stride = 0}},
        {"rows that overlap", {.width = 100}},
        {"no rows", {.height = 0}},
        {"a wall of monitors", {.width = 100'000, .height = 100'000, .stride = 400'000}},
        {"a picture of a gigabyte", {.width = 16384, .height = 16384, .stride = 65536}},
        {"a tower of single pixels", {.width = 1, .height = 1 << 20, .stride = 4}},
        {"more than fits a number", {.width = huge, .height = huge, .stride = huge}},
        {"says nothing", {.tells = false}},
        {"fails each time", {.fails = true}}};
    for (const auto& [lie, copy] : lies) {
        compositor.setCopy(copy);
        EXPECT_FALSE(screencopy.picture()) << lie;
    }
    compositor.setCopy({.strideLater = 4});
    const auto odd = screencopy.picture();
    ASSERT_TRUE(odd) << "what is said too late counts for nothing";
    EXPECT_EQ(odd->pixels->back(), 255);
    // A page beyond the end of a file ends whoever reads it.
    compositor.setCopy({.takesMemoryAway = true});
    EXPECT_TRUE(screencopy.picture());
    compositor.setCopy({});
    {
        const auto hanging = compositor.hang();
        const auto began = std::chrono::steady_clock::now();
        EXPECT_FALSE(screencopy.picture());
        EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(6));
    }
    EXPECT_TRUE(screencopy.picture());
    EXPECT_TRUE(before.comesBack()) << before << " before, " << test::ProcessUse::now() << " after";
}

} // namespace
} // namespace mnemora::wayland
