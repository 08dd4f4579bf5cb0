// The real networks over a session of screens that follow each other as they do at work.

#include "Engines/Recognition/OpenVinoNetworks.h"
#include "Engines/Recognition/PictureReader.h"
#include "Engines/ScreenPainter.h"
#include "Support/Installation.h"

#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>

namespace mnemora::recognition {
namespace {

/// Counts what the real networks are asked.
class CountedNetworks final : public TextNetworks {
  public:
    explicit CountedNetworks(std::shared_ptr<TextNetworks> real) : real_(std::move(real)) {}

    std::optional<std::vector<float>> detect(const Planes& planes) override {
        return real_->detect(planes);
    }
    std::optional<Reading> read(const Planes& line) override {
        ++readings;
        return real_->read(line);
    }

    int readings = 0;

  private:
    std::shared_ptr<TextNetworks> real_;
};

std::string contentOf(const std::string& name) {
    std::ifstream file(installation::data() / "models/recognition" / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

PictureView viewOf(const Image& image) {
    return {image.pixels->data(), image.width, image.height, image.stride};
}

const QColor ink(30, 30, 30);

/// An editor with a clock: the line that is being typed is the argument's to say.
ScreenPainter editor(int scrolled, const std::string& typed, const std::string& clock) {
    ScreenPainter screen(QColor(252, 252, 250), 1280, 800);
    const auto font = screenFont("DejaVu Sans Mono", 13);
    screen.fill(0, 0, 1280, 24, QColor(50, 52, 60));
    screen.write(1200, 4, clock, screenFont("DejaVu Sans", 12), Qt::white);
    for (int i = 0; i < 34; ++i)
        screen.write(40, 36 + i * 22,
                     i == 20 ? typed
                             : "Line " + std::to_string(scrolled + i) + " of chapter number " +
                                   std::to_string((scrolled + i) * 37 % 100) + ", as written",
                     font, ink);
    return screen;
}

ScreenPainter withDialog() {
    auto screen = editor(0, "The quick brown fox", "09:02");
    screen.fill(400, 300, 480, 160, QColor(225, 225, 230));
    screen.write(430, 330, "Save changes before closing?", screenFont("DejaVu Sans", 14, true),
                 ink);
    screen.write(430, 410, "Discard", screenFont("DejaVu Sans", 13), ink);
    screen.write(700, 410, "Save", screenFont("DejaVu Sans", 13), ink);
    return screen;
}

std::vector<ScreenPainter> session() {
    return {
        editor(0, "The", "09:00"),
        editor(0, "The quick", "09:00"),
        editor(0, "The quick brown fox", "09:01"),
        withDialog(),
        editor(0, "The quick brown fox", "09:02"), // back again
        editor(3, "The quick brown fox", "09:02"), // scrolled by whole lines
        ScreenPainter(QColor(20, 60, 90), 1280, 800),
        editor(3, "The quick brown fox jumps", "09:05"),
    };
}

TEST(RecognitionSession, ReadsTheSameAsOneWhoHasSeenNothingBefore) {
    auto loaded = loadOpenVinoNetworks(contentOf("PP-OCRv6_det_small.onnx"),
                                       contentOf("PP-OCRv6_rec_small.onnx"));
    ASSERT_TRUE(loaded) << loaded.description();
    CountedNetworks networks(*loaded);
    PictureReader following(networks);
    int readByFollower = 0;
    int readAfresh = 0;
    int step = 0;
    for (const auto& screen : session()) {
        SCOPED_TRACE(++step);
        const auto image = screen.image();
        networks.readings = 0;
        const auto lines = following.read(viewOf(image));
        readByFollower += networks.readings;
        networks.readings = 0;
        const auto afresh = PictureReader(networks).read(viewOf(image));
        readAfresh += networks.readings;
        ASSERT_TRUE(lines);
        EXPECT_EQ(lines, afresh);
    }
    // Of eight screens, what had to be read is little more than two.
    EXPECT_LT(readByFollower * 2, readAfresh) << readByFollower << " of " << readAfresh;
}

TEST(RecognitionSession, RefusesWhatIsNoNetwork) {
    EXPECT_FALSE(loadOpenVinoNetworks("no network", "neither"));
    EXPECT_FALSE(loadOpenVinoNetworks(contentOf("PP-OCRv6_rec_small.onnx"),
                                      contentOf("PP-OCRv6_det_small.onnx")));
}

} // namespace
} // namespace mnemora::recognition
