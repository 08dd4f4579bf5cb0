// The calculations around the networks, by themselves.

#include "Engines/Recognition/Ctc.h"
#include "Engines/Recognition/PictureReader.h"
#include "Engines/Recognition/ReadingOrder.h"
#include "Engines/Recognition/Scaling.h"
#include "Engines/Recognition/TextDetector.h"
#include "Engines/Recognition/TextRegions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace mnemora::recognition {
namespace {

using ::testing::ElementsAre;

/// A picture whose pixels a test paints.
struct Canvas {
    Canvas(int width_, int height_)
        : width(width_), height(height_),
          bytes(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4) {}

    void paint(const Box& box, std::uint8_t value) {
        for (int y = box.top; y < box.bottom; ++y)
            for (int x = box.left; x < box.right; ++x)
                for (std::size_t colour = 0; colour < 4; ++colour)
                    bytes[static_cast<std::size_t>(y * width + x) * 4 + colour] = value;
    }
    [[nodiscard]] PictureView view() const {
        return {bytes.data(), width, height, static_cast<std::size_t>(width) * 4};
    }

    int width;
    int height;
    std::vector<std::uint8_t> bytes;
};

TEST(Scaling, SearchesAtMostSixteenHundredPixelsInStepsOfThirtyTwo) {
    struct {
        int width, height;
        DetectionSize expected;
    } const cases[] = {
        {1920, 1080, {1600, 896}}, {1080, 1920, {896, 1600}}, {1280, 800, {1280, 800}},
        {7680, 4320, {1600, 896}}, {1000, 700, {992, 704}},   {1, 1, {32, 32}},
        {16384, 1, {1600, 32}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(detectionSize(c.width, c.height), c.expected) << c.width << "x" << c.height;
}

TEST(Scaling, MixesNeighboursAndContinuesTheBorder) {
    Canvas canvas(2, 1);
    canvas.paint({1, 0, 2, 1}, 255);
    const auto planes = scaledBand(canvas.view(), {4, 1}, 0, 1);
    ASSERT_EQ(planes.values.size(), 12U);
    // Pixel centres at 0, 0.25, 0.75 and 1 between black (-1) and white (1).
    const float expected[] = {-1, -0.5F, 0.5F, 1};
    for (std::size_t i = 0; i < planes.values.size(); ++i)
        EXPECT_NEAR(planes.values[i], expected[i % 4], 1e-5) << i;
}

TEST(Scaling, ABandIsTheSameRowsAsInTheWholePicture) {
    Canvas canvas(50, 90);
    for (std::size_t i = 0; i < canvas.bytes.size(); ++i)
        canvas.bytes[i] = static_cast<std::uint8_t>(i * 31 % 251);
    const auto whole = scaledBand(canvas.view(), {32, 64}, 0, 64);
    const auto band = scaledBand(canvas.view(), {32, 64}, 16, 32);
    for (int plane = 0; plane < 3; ++plane)
        for (int i = 0; i < 32 * 32; ++i)
            EXPECT_EQ(band.values[static_cast<std::size_t>(plane * 32 * 32 + i)],
                      whole.values[static_cast<std::size_t>(plane * 32 * 64 + 16 * 32 + i)]);
}

TEST(Scaling, PadsALineToOneOfFewWidths) {
    Canvas canvas(200, 20);
    canvas.paint({0, 0, 200, 20}, 255);
    const Box box{0, 0, 100, 20}; // 240 wide at the height of 48
    EXPECT_EQ(paddedLineWidth(box), 256);
    const auto planes = scaledLine(canvas.view(), box);
    EXPECT_EQ(planes.width, 256);
    EXPECT_EQ(planes.height, 48);
    EXPECT_FLOAT_EQ(planes.values[239], 1);
    EXPECT_FLOAT_EQ(planes.values[240], 0);
    EXPECT_EQ(paddedLineWidth({0, 0, 1, 20}), 64);
    EXPECT_EQ(paddedLineWidth({0, 0, 16384, 4}), 3072);
}

TEST(TextRegions, KeepsConnectedCoresAndGrowsThem) {
    std::vector<float> map(40 * 20);
    const auto set = [&](int x, int y, float value) {
        map[static_cast<std::size_t>(y * 40 + x)] = value;
    };
    for (int y = 5; y < 9; ++y)
        for (int x = 10; x < 20; ++x)
            set(x, y, 0.9F);
    set(20, 9, 0.9F);             // touches it by a corner
    for (int y = 12; y < 14; ++y) // two pixels high
        for (int x = 5; x < 30; ++x)
            set(x, y, 1);
    for (int y = 0; y < 4; ++y) // faint
        for (int x = 25; x < 35; ++x)
            set(x, y, 0.4F);
    const auto regions = findRegions({map, 40, 20});
    ASSERT_EQ(regions.size(), 1U);
    // 11 x 5 pixels: grown by 55 * 1.6 / 32.
    EXPECT_DOUBLE_EQ(regions[0].left, 10 - 2.75);
    EXPECT_DOUBLE_EQ(regions[0].right, 21 + 2.75);
    EXPECT_DOUBLE_EQ(regions[0].top, 5 - 2.75);
    EXPECT_DOUBLE_EQ(regions[0].bottom, 10 + 2.75);
    EXPECT_FALSE(regions[0].touchesTop);
}

TEST(Ctc, FoldsRepetitionsAndLeavesOutBlanks) {
    const Alphabet alphabet("a\nb\n\u00e9");
    ASSERT_EQ(alphabet.size(), 5U); // with the blank before and the space behind
    const auto scores = [&](const std::vector<std::pair<std::size_t, float>>& steps) {
        std::vector<float> values;
        for (const auto& [index, score] : steps) {
            std::vector<float> step(alphabet.size(), 0.01F);
            step[index] = score;
            values.insert(values.end(), step.begin(), step.end());
        }
        return values;
    };
    struct {
        std::vector<std::pair<std::size_t, float>> steps;
        Reading expected;
    } const cases[] = {
        {{{1, .9F}, {1, .5F}, {0, .9F}, {1, .7F}}, {"aa", .8F}},
        {{{2, .5F}, {4, .5F}, {3, .5F}}, {"b \u00e9", .5F}},
        {{{0, .9F}, {0, .9F}}, {"", 0}},
        {{}, {"", 0}},
    };
    for (const auto& c : cases) {
        const auto reading = readGreedily(scores(c.steps), alphabet);
        EXPECT_EQ(reading.text, c.expected.text);
        EXPECT_NEAR(reading.score, c.expected.score, 1e-5);
    }
}

TEST(Ctc, FindsTheGreatestOfThousandsOfClasses) {
    std::string characters;
    for (int i = 0; i < 5000; ++i)
        characters += std::to_string(i) + "\n";
    const Alphabet alphabet(characters);
    for (const std::size_t index : {1U, 15U, 16U, 17U, 2500U, 4999U, 5000U}) {
        std::vector<float> step(alphabet.size(), 0.001F);
        step[index] = 0.9F;
        EXPECT_EQ(readGreedily(step, alphabet).text, std::to_string(index - 1));
    }
}

TEST(ReadingOrder, ReadsRowsFromTheTopAndKeepsColumnsApart) {
    const std::vector<Box> boxes{
        {300, 102, 400, 122}, // 0: the right column, first row, a little lower
        {10, 140, 100, 160},  // 1: second row
        {10, 100, 100, 120},  // 2: first row
        {110, 100, 200, 120}, // 3: first row, a word's gap behind 2
        {10, 10, 500, 60},    // 4: a title
    };
    EXPECT_THAT(linesInReadingOrder(boxes),
                ElementsAre(ElementsAre(4), ElementsAre(2, 3), ElementsAre(0), ElementsAre(1)));
    EXPECT_TRUE(linesInReadingOrder({}).empty());
}

TEST(TextDetector, BandsCoverEveryRowOnceAndOverlap) {
    for (const DetectionSize size : {DetectionSize{1600, 896},
                                     {896, 1600},
                                     {1600, 384},
                                     {1600, 416},
                                     {32, 32},
                                     {1600, 1600}}) {
        const auto bands = bandsOf(size);
        int next = 0;
        for (std::size_t i = 0; i < bands.size(); ++i) {
            EXPECT_EQ(bands[i].ownTop, next);
            EXPECT_EQ(bands[i].rows, bands.front().rows);
            EXPECT_EQ(bands[i].rows % 32, 0);
            EXPECT_LE(bands[i].top + bands[i].rows, size.height);
            if (i > 0) {
                EXPECT_GE(bands[i - 1].top + bands[i - 1].rows - bands[i].top, 128);
            }
            next = bands[i].ownBottom;
        }
        EXPECT_EQ(next, size.height);
    }
}

/// Takes white pixels for text and reads as text how wide a line is.
class WhiteIsText final : public TextNetworks {
  public:
    std::optional<std::vector<float>> detect(const Planes& planes) override {
        ++detections;
        const auto size = planes.values.size() / 3;
        std::vector<float> map(size);
        for (std::size_t i = 0; i < size; ++i)
            map[i] = planes.values[i] > 0.9F ? 1.0F : 0.0F;
        return map;
    }
    std::optional<Reading> read(const Planes& line) override {
        ++readings;
        return Reading{std::to_string(line.width), score};
    }

    int detections = 0;
    int readings = 0;
    float score = 0.9F;
};

TEST(TextDetector, FindsLinesOfEverySizeOnceWhereverTheyLie) {
    for (const int height : {6, 20, 60, 126, 140})
        for (int top = 3; top + height < 880; top += 37) {
            WhiteIsText networks;
            Canvas canvas(1600, 896);
            canvas.paint({200, top, 900, top + height}, 255);
            const auto boxes = TextDetector(networks).find(canvas.view());
            ASSERT_TRUE(boxes);
            int covering = 0;
            for (const auto& box : *boxes)
                if (box.top <= top + 2 && box.bottom >= std::min(896, top + height - 2) &&
                    box.left <= 202 && box.right >= 898)
                    ++covering;
            EXPECT_EQ(covering, 1) << height << " pixels at " << top;
            EXPECT_EQ(boxes->size(), 1U) << height << " pixels at " << top;
        }
}

TEST(PictureReader, LooksOnlyAtWhatChanged) {
    WhiteIsText networks;
    PictureReader reader(networks);
    Canvas canvas(1600, 896);
    for (int i = 0; i < 20; ++i)
        canvas.paint({100, 20 + i * 43, 400 + i * 10, 36 + i * 43}, 255);
    const auto first = reader.read(canvas.view());
    ASSERT_TRUE(first);
    EXPECT_EQ(first->size(), 20U);
    EXPECT_EQ(networks.readings, 20);
    EXPECT_EQ(networks.detections, 3);

    EXPECT_EQ(reader.read(canvas.view()), first);
    EXPECT_EQ(networks.readings, 20);
    EXPECT_EQ(networks.detections, 3);

    canvas.paint({500, 20, 777, 36}, 255); // in the first band only
    ASSERT_TRUE(reader.read(canvas.view()));
    EXPECT_EQ(networks.readings, 21);
    EXPECT_EQ(networks.detections, 4);
}

TEST(PictureReader, GivesNoCandidateToALineBelowHalf) {
    WhiteIsText networks;
    networks.score = 0.49F;
    Canvas canvas(640, 480);
    canvas.paint({100, 100, 300, 120}, 255);
    EXPECT_THAT(*PictureReader(networks).read(canvas.view()), ElementsAre(RecognizedLine{}));
}

} // namespace
} // namespace mnemora::recognition
