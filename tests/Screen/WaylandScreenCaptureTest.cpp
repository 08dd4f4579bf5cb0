// Which way the screen is read, and what counts as a picture, with a cast that does as told.

#include "Linux/Screen/WaylandScreenCapture.h"

#include "Screen/FakePortal.h"
#include "fakes/CapturedStderr.h"

#include <atomic>
#include <gtest/gtest.h>
#include <optional>
#include <thread>

namespace mnemora::wayland {
namespace {

using namespace std::chrono_literals;

struct ScriptedStream final : FrameStream {
    Outcome<Image> picture(std::chrono::milliseconds,
                           std::chrono::steady_clock::time_point changedAt) override {
        if (changedAt > drawnAt.load())
            return Image{};
        if (colour < 0)
            return Failure{"the compositor sent no picture"};
        auto pixels = std::make_shared<std::vector<std::uint8_t>>(
            16, static_cast<std::uint8_t>(colour.load()));
        return Image{2, 2, 8, std::move(pixels)};
    }
    [[nodiscard]] bool isAlive() const override { return true; }
    std::atomic<int> colour = 1; ///< of all pixels; negative: no picture comes
    std::atomic<std::chrono::steady_clock::time_point> drawnAt = std::chrono::steady_clock::now();
};
struct OpenGuard final : FrontWindowGuard {
    bool contentMayBeRead() override { return true; }
};
struct Regions final : WithheldRegions {
    std::optional<desktop::Area> withheld() override { return area; }
    desktop::Area area;
};

class WaylandScreenCaptureTest : public ::testing::Test {
  protected:
    WaylandScreenCapture& run() {
        unsetenv("WAYLAND_DISPLAY");
        capture_.emplace(CaptureChecks{.guard = std::make_shared<OpenGuard>(),
                                       .regions = regions_,
                                       .hasRoom = [] { return true; },
                                       .windowsChangedAt = [this] { return changedAt_.load(); }},
                         thread_,
                         portal::ScreenCastPortal::Options{
                             .token = "old",
                             .keepToken = {},
                             .loadOpener = [this](std::string&) -> FrameStreamOpener {
                                 return [this](const CastSource&, std::string&) { return stream_; };
                             },
                             .pause = 10ms});
        capture_->waitUntilKnown(15s);
        return *capture_;
    }

    test::PrivateBus bus_;
    std::shared_ptr<ScriptedStream> stream_ = std::make_shared<ScriptedStream>();
    std::shared_ptr<Regions> regions_ = std::make_shared<Regions>();
    std::atomic<std::chrono::steady_clock::time_point> changedAt_ =
        std::chrono::steady_clock::time_point();

  private:
    desktop::GLibThread thread_{"test-listener"};
    std::optional<WaylandScreenCapture> capture_;
};

TEST_F(WaylandScreenCaptureTest, SaysOnceWhatThisSessionLacks) {
    const test::CapturedStderr log;
    auto& capture = run();
    EXPECT_EQ(capture.facts().way, ScreenConsent::Way::none);
    EXPECT_FALSE(capture.isPermitted());
    EXPECT_TRUE(capture.displays()->empty());
    EXPECT_EQ(log.text(), "[mnemora][error] the screen can't be read: this session has neither a "
                          "screen cast portal nor wlr-screencopy\n");
    const test::FakePortal later;
    const auto bound = std::chrono::steady_clock::now() + 15s;
    while (!capture.isPermitted() && std::chrono::steady_clock::now() < bound)
        std::this_thread::yield();
    EXPECT_EQ(capture.facts().way, ScreenConsent::Way::portal);
}

TEST_F(WaylandScreenCaptureTest, TakesABlackPictureForNone) {
    const test::FakePortal portal;
    auto& capture = run();
    const auto displays = capture.displays();
    ASSERT_TRUE(displays);
    ASSERT_EQ(displays->size(), 1U);
    EXPECT_TRUE(capture.image(displays->front(), 2, 2));
    stream_->colour = 0;
    EXPECT_EQ(capture.displays().description(), "the picture is black");
    stream_->colour = 1;
    regions_->area = {{-1000, -1000, 2000, 2000}};
    ASSERT_TRUE(capture.displays()) << "which is no failure";
    EXPECT_TRUE(capture.displays()->empty()) << "what is withheld may be anywhere";
}

TEST_F(WaylandScreenCaptureTest, StartsAnewWhenNoPicturesCome) {
    const test::FakePortal portal;
    auto& capture = run();
    ASSERT_EQ(capture.displays()->size(), 1U);
    stream_->colour = -1;
    for (int missed = 0; missed < 2; ++missed)
        EXPECT_FALSE(capture.displays());
    stream_->colour = 1;
    changedAt_ = std::chrono::steady_clock::now();
    const auto displays = capture.displays();
    ASSERT_TRUE(displays) << "nothing since the windows changed is no failure";
    EXPECT_TRUE(displays->empty());
    stream_->drawnAt = std::chrono::steady_clock::now();
    const auto bound = std::chrono::steady_clock::now() + 15s;
    while ((!capture.isPermitted() || portal.count("Start") < 2) &&
           std::chrono::steady_clock::now() < bound)
        std::this_thread::yield();
    EXPECT_EQ(portal.count("Start"), 2);
    EXPECT_EQ(capture.displays()->size(), 1U);
}

} // namespace
} // namespace mnemora::wayland
