#include "Linux/Screen/FrameLayout.h"

#include "Support/FileDescriptor.h"

#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <sys/mman.h>

namespace mnemora {
namespace {

/// A picture of `width` pixels a row whose pixels are blue 1, 2, 3, ...
Image numbered(int width, int height) {
    std::vector<std::uint8_t> memory;
    for (int at = 1; at <= width * height; ++at)
        memory.insert(memory.end(), {static_cast<std::uint8_t>(at), 0, 7, 0});
    return *imageIn(memory.data(), memory.size(), 0, 0, {width, height});
}

std::vector<int> blues(const Image& image) {
    std::vector<int> found;
    for (std::size_t at = 0; at < image.pixels->size(); at += 4)
        found.push_back((*image.pixels)[at]);
    return found;
}

TEST(FrameLayout, ReadsNothingBeyondTheProducersMemory) {
    const std::vector<std::uint8_t> memory(100, 9);
    const auto at = [&](std::size_t offset, std::int64_t stride, FrameLayout layout) {
        return imageIn(memory.data(), memory.size(), offset, stride, layout).has_value();
    };
    EXPECT_TRUE(at(0, 0, {5, 5}));
    EXPECT_TRUE(at(4, 24, {5, 4})); // the last row ends with the memory
    EXPECT_TRUE(at(8, 24, {5, 4}));
    EXPECT_FALSE(at(12, 24, {5, 4}));
    EXPECT_FALSE(at(4, 0, {5, 5}));
    EXPECT_FALSE(at(0, 16, {5, 5})) << "rows that overlap";
    EXPECT_FALSE(at(0, -20, {5, 5}));
    EXPECT_FALSE(at(101, 0, {1, 1}));
    EXPECT_FALSE(at(std::numeric_limits<std::size_t>::max(), 20, {5, 5}));
    EXPECT_FALSE(at(0, std::numeric_limits<std::int64_t>::max(), {5, 5}));
    constexpr int huge = std::numeric_limits<int>::max();
    for (const FrameLayout layout : {FrameLayout{}, {-5, 5}, {5, -5}, {huge, huge}, {1, huge}})
        EXPECT_FALSE(at(0, 0, layout));
    EXPECT_FALSE(imageIn(nullptr, 100, 0, 0, {5, 5}));
    // A file shorter than its producer says.
    const FileDescriptor file(memfd_create("frame", MFD_CLOEXEC));
    ASSERT_TRUE(writeAll(file.get(), std::string(100, 'x')));
    EXPECT_EQ(bytesInFile(file.get(), 0, 100), 100U);
    EXPECT_EQ(bytesInFile(file.get(), 40, 100), 60U);
    EXPECT_EQ(bytesInFile(file.get(), 100, 1), 0U);
    EXPECT_EQ(bytesInFile(-1, 0, 100), 0U);
}

TEST(FrameLayout, PutsColoursInOurOrderAndTurnsPicturesUpright) {
    const std::vector<std::uint8_t> red = {255, 0, 1, 0};
    const auto image = imageIn(red.data(), red.size(), 0, 0, {1, 1, true});
    EXPECT_EQ(*image->pixels, (std::vector<std::uint8_t>{1, 0, 255, 0}));
    // As rows: 1 2 3 / 4 5 6
    const std::vector<std::vector<int>> seen = {{1, 2, 3, 4, 5, 6}, {}, {6, 5, 4, 3, 2, 1}, {},
                                                {3, 2, 1, 6, 5, 4}, {}, {4, 5, 6, 1, 2, 3}};
    for (std::uint32_t transform : {0U, 2U, 4U, 6U, 8U})
        EXPECT_EQ(blues(upright(numbered(3, 2), transform)), seen[transform % 8]) << transform;
    for (std::uint32_t transform : {1U, 3U, 5U, 7U}) {
        const auto turned = upright(numbered(3, 2), transform);
        EXPECT_EQ(turned.width, 2);
        EXPECT_EQ(turned.height, 3);
    }
}

TEST(FrameLayout, KnowsABlackPicture) {
    EXPECT_TRUE(isBlack({}));
    const std::vector<std::uint8_t> opaque = {0, 0, 0, 255, 0, 0, 0, 255};
    EXPECT_TRUE(isBlack(*imageIn(opaque.data(), opaque.size(), 0, 0, {2, 1})));
    EXPECT_FALSE(isBlack(numbered(2, 1)));
}

} // namespace
} // namespace mnemora
