// Pictures of a real X server.

#include "Linux/Screen/X11ScreenCapture.h"

#include "desktop/XServer.h"
#include "fakes/Eventually.h"

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <fstream>
#include <gtest/gtest.h>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>
#include <xcb/xcb.h>

namespace mnemora::x11 {
namespace {

using desktop::XServer;

/// Paints the root window.
class Painter {
  public:
    Painter() : connection_(xcb_connect(nullptr, nullptr)) {
        root_ = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data->root;
    }
    Painter(const Painter&) = delete;
    Painter& operator=(const Painter&) = delete;
    ~Painter() { xcb_disconnect(connection_); }

    void paint(std::int16_t left, std::uint16_t width, std::uint32_t colour) {
        const auto context = xcb_generate_id(connection_);
        const std::array<std::uint32_t, 2> values{colour, XCB_SUBWINDOW_MODE_INCLUDE_INFERIORS};
        xcb_create_gc(connection_, context, root_, XCB_GC_FOREGROUND | XCB_GC_SUBWINDOW_MODE,
                      values.data());
        const xcb_rectangle_t area{left, 0, width, 200};
        xcb_poly_fill_rectangle(connection_, root_, context, 1, &area);
        settle();
    }

  private:
    void settle() {
        std::free(
            xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr));
    }

    xcb_connection_t* connection_;
    xcb_window_t root_ = 0;
};

/// Answers in turn; the last answer stays.
struct ScriptedGuard final : FrontWindowGuard {
    bool contentMayBeRead() override {
        const bool answer = answers.front();
        if (answers.size() > 1)
            answers.pop_front();
        return answer;
    }
    std::deque<bool> answers{true};
};

/// Likewise.
struct ScriptedRegions final : WithheldRegions {
    std::optional<desktop::Area> withheld() override {
        auto answer = answers.front();
        if (answers.size() > 1)
            answers.pop_front();
        return answer;
    }
    std::deque<std::optional<desktop::Area>> answers{desktop::Area()};
};

class X11ScreenCaptureTest : public ::testing::Test {
  protected:
    XServer server_{{"Xvfb", "-screen", "0", "320x200x24"}};
    std::shared_ptr<ScriptedGuard> guard_ = std::make_shared<ScriptedGuard>();
    std::shared_ptr<ScriptedRegions> regions_ = std::make_shared<ScriptedRegions>();
    bool hasRoom_ = true;
    std::deque<std::uint64_t> changes_{0};
    X11ScreenCapture capture_{{guard_, regions_, [this] { return hasRoom_; },
                               [this] {
                                   const auto answer = changes_.front();
                                   if (changes_.size() > 1)
                                       changes_.pop_front();
                                   return answer;
                               }}};
};

std::uint32_t pixelAt(const Image& image, int x, int y) {
    const auto at = static_cast<std::size_t>(y) * image.stride + static_cast<std::size_t>(x) * 4;
    const auto& bytes = *image.pixels;
    return static_cast<std::uint32_t>(bytes[at + 2] << 16 | bytes[at + 1] << 8 | bytes[at]);
}

TEST_F(X11ScreenCaptureTest, PicturesTheScreenAsItIs) {
    Painter painter;
    painter.paint(0, 320, 0x102030);
    painter.paint(100, 50, 0xFF8001);
    ASSERT_TRUE(capture_.isPermitted());
    const auto displays = capture_.displays();
    ASSERT_TRUE(displays);
    ASSERT_EQ(displays->size(), 1U);
    const auto& display = displays->front();
    EXPECT_EQ(display.width, 320);
    EXPECT_EQ(display.height, 200);
    const auto image = capture_.image(display, 320, 200);
    ASSERT_TRUE(image) << image.description();
    EXPECT_EQ(pixelAt(*image, 0, 0), 0x102030U);
    EXPECT_EQ(pixelAt(*image, 99, 199), 0x102030U);
    EXPECT_EQ(pixelAt(*image, 100, 0), 0xFF8001U);
    EXPECT_EQ(pixelAt(*image, 149, 199), 0xFF8001U);
}

TEST_F(X11ScreenCaptureTest, PicturesNoDisplayThatHasChanged) {
    auto display = capture_.displays()->front();
    EXPECT_FALSE(capture_.image(display, 160, 200));
    ++display.identifier;
    EXPECT_FALSE(capture_.image(display, 320, 200));
}

TEST_F(X11ScreenCaptureTest, HasNoPictureWhileSomethingPrivateIsInFront) {
    const auto display = capture_.displays()->front();
    guard_->answers = {false};
    ASSERT_TRUE(capture_.displays());
    EXPECT_TRUE(capture_.displays()->empty());
    EXPECT_FALSE(capture_.image(display, 320, 200)) << "nor that of before";
    // It came between the two looks.
    guard_->answers = {true, false};
    ASSERT_TRUE(capture_.displays()) << "which is no failure";
    guard_->answers = {true, false};
    EXPECT_TRUE(capture_.displays()->empty());
    EXPECT_FALSE(capture_.image(display, 320, 200));
    guard_->answers = {true};
    EXPECT_EQ(capture_.displays()->size(), 1U);
    EXPECT_TRUE(capture_.image(display, 320, 200));
    EXPECT_FALSE(capture_.image(display, 320, 200)) << "each picture once";
}

TEST_F(X11ScreenCaptureTest, BlackensWhatIsWithheldBeforeOrAfterTheShot) {
    Painter().paint(0, 320, 0x102030);
    regions_->answers = {desktop::Area{{-20, -20, 30, 30}},
                         desktop::Area{{300, 190, 50, 50}, {40, 0, 2, 200}}};
    const auto display = capture_.displays()->front();
    const auto image = capture_.image(display, 320, 200);
    ASSERT_TRUE(image) << image.description();
    for (const auto& [x, y, isBlack] : {std::tuple{0, 0, true},
                                        {9, 9, true},
                                        {10, 9, false},
                                        {9, 10, false},
                                        {299, 199, false},
                                        {300, 189, false},
                                        {300, 190, true},
                                        {319, 199, true},
                                        {40, 0, true},
                                        {41, 199, true},
                                        {39, 100, false},
                                        {42, 100, false}})
        EXPECT_EQ(pixelAt(*image, x, y), isBlack ? 0U : 0x102030U) << x << ", " << y;
}

TEST_F(X11ScreenCaptureTest, HasNoDisplayWhileItCantBeToldWhatIsPrivate) {
    const auto display = capture_.displays()->front();
    regions_->answers = {desktop::Area(), std::nullopt};
    for (const char* when : {"after the shot", "before it"}) {
        const auto displays = capture_.displays();
        ASSERT_TRUE(displays) << when;
        EXPECT_TRUE(displays->empty()) << when;
        EXPECT_FALSE(capture_.image(display, 320, 200)) << when;
    }
}

TEST_F(X11ScreenCaptureTest, HasNoDisplayWhenAWindowCameAndWentDuringTheShot) {
    changes_ = {7, 9};
    ASSERT_TRUE(capture_.displays()) << "which is no failure";
    changes_ = {7, 9};
    EXPECT_TRUE(capture_.displays()->empty());
    changes_ = {9};
    EXPECT_EQ(capture_.displays()->size(), 1U);
}

TEST_F(X11ScreenCaptureTest, HasNoDisplayWhileNoPictureWouldBeRecognised) {
    hasRoom_ = false;
    ASSERT_TRUE(capture_.displays());
    EXPECT_TRUE(capture_.displays()->empty());
}

TEST_F(X11ScreenCaptureTest, IsRefusedInAWaylandSession) {
    for (const auto& [name, value] :
         {std::pair{"WAYLAND_DISPLAY", "wayland-0"}, std::pair{"XDG_SESSION_TYPE", "wayland"}}) {
        setenv(name, value, 1);
        EXPECT_FALSE(capture_.isPermitted());
        EXPECT_TRUE(capture_.displays()->empty());
        unsetenv(name);
    }
    EXPECT_TRUE(capture_.isPermitted());
}

TEST_F(X11ScreenCaptureTest, WaitsForAHungServerOnlySoLong) {
    ASSERT_TRUE(capture_.displays());
    server_.signal(SIGSTOP);
    EXPECT_FALSE(capture_.displays());
    server_.signal(SIGCONT);
    const auto displays = capture_.displays();
    ASSERT_TRUE(displays) << "it works again once the server does";
    EXPECT_TRUE(capture_.image(displays->front(), 320, 200));
}

/// The driver without a card has what Xvfb lacks: outputs that can be set and switched off.
constexpr auto outputs = R"(
Section "Device"
  Identifier "card"
  Driver "dummy"
  VideoRam 256000
EndSection
Section "Monitor"
  Identifier "monitor"
  HorizSync 5-1000
  VertRefresh 5-200
EndSection
Section "Screen"
  Identifier "screen"
  Device "card"
  Monitor "monitor"
  DefaultDepth 24
  SubSection "Display"
    Depth 24
    Virtual 7680 4320
    Modes "1280x800"
  EndSubSection
EndSection
Section "ServerFlags"
  Option "AutoAddDevices" "false"
  Option "AllowMouseOpenFail" "true"
EndSection
)";

class OutputsTest : public ::testing::Test {
  protected:
    static std::vector<std::string> command() {
        std::ofstream("outputs.conf") << outputs; // a user's own may only be named without a path
        return {"Xorg",      "-config",     "outputs.conf", "-logfile",
                "/dev/null", "-novtswitch", "-sharevts"};
    }
    ~OutputsTest() override { std::remove(command()[2].c_str()); }
    void SetUp() override {
        if (!server_.isThere())
            GTEST_SKIP() << "no Xorg with the dummy driver";
    }
    static void set(const std::string& arguments) {
        ASSERT_EQ(std::system(("xrandr >/dev/null " + arguments).c_str()), 0) << arguments;
    }
    static void add(const std::string& name, int width, int height) {
        const auto side = [](int first) {
            return " " + std::to_string(first) + " " + std::to_string(first + 1) + " " +
                   std::to_string(first + 2) + " " + std::to_string(first + 3);
        };
        set("--newmode " + name + " 100" + side(width) + side(height));
        set("--addmode DUMMY0 " + name);
    }
    /// Width and height of the picture, 0 where there is none.
    std::pair<int, int> pictured() {
        const auto displays = capture_.displays();
        if (!displays || displays->empty())
            return {};
        const auto& display = displays->front();
        const auto image = capture_.image(display, display.width, display.height);
        return image ? std::pair(image->width, image->height) : std::pair(0, 0);
    }

    XServer server_{command()};
    X11ScreenCapture capture_{{std::make_shared<ScriptedGuard>(),
                               std::make_shared<ScriptedRegions>(), [] { return true; }}};
};

TEST_F(OutputsTest, ArePicturedAtTheSizeThatTheyHaveNow) {
    EXPECT_EQ(pictured(), std::pair(1280, 800));
    add("tall", 800, 1280);
    set("--output DUMMY0 --mode tall");
    EXPECT_EQ(pictured(), std::pair(800, 1280));
    add("huge", 7680, 4320);
    set("--output DUMMY0 --mode huge");
    EXPECT_EQ(pictured(), std::pair(7680, 4320));
    // The name's asterisk makes a monitor the primary one (xrandr(1)).
    set("--setmonitor right 640/100x4320/100+7040+0 none");
    set("--setmonitor '*left' 7040/100x4320/100+0+0 DUMMY0");
    EXPECT_EQ(pictured(), std::pair(7040, 4320)) << "of two monitors the primary one";
}

TEST_F(OutputsTest, AreNoDisplayWhileOffAndComeBack) {
    set("--output DUMMY0 --off");
    const auto none = capture_.displays();
    ASSERT_TRUE(none) << "which is no failure";
    EXPECT_TRUE(none->empty());
    set("--output DUMMY0 --mode 1280x800");
    EXPECT_EQ(pictured(), std::pair(1280, 800));
}

TEST_F(OutputsTest, MayBeUnpluggedWhileTheyArePictured) {
    std::atomic<bool> isOver = false;
    std::thread hand([&] {
        for (int round = 0; round < 20; ++round)
            for (const char* change : {"--off", "--mode 800x600", "--mode 1280x800"})
                set(std::string("--output DUMMY0 ") + change);
        isOver = true;
    });
    const std::set<std::pair<int, int>> possible{{0, 0}, {800, 600}, {1280, 800}};
    std::set<std::pair<int, int>> seen;
    while (!isOver)
        seen.insert(pictured());
    hand.join();
    for (const auto& [width, height] : seen)
        EXPECT_TRUE(possible.contains({width, height})) << width << " x " << height;
    EXPECT_EQ(pictured(), std::pair(1280, 800));
}

TEST(X11ScreenCaptureWithoutServer, IsNotPermitted) {
    setenv("DISPLAY", ":4711", 1);
    X11ScreenCapture capture({std::make_shared<ScriptedGuard>(),
                              std::make_shared<ScriptedRegions>(), [] { return true; }});
    EXPECT_FALSE(capture.isPermitted());
    EXPECT_FALSE(capture.displays());
}

TEST(X11ScreenCaptureWithoutServer, FindsTheServerLaterWithoutKeepingTheCallerWaiting) {
    setenv("DISPLAY", ":4711", 1);
    X11ScreenCapture capture({std::make_shared<ScriptedGuard>(),
                              std::make_shared<ScriptedRegions>(), [] { return true; }});
    const XServer server;
    const auto isPermitted = [&] { return capture.isPermitted(); };
    EXPECT_TRUE(test::Eventually{std::chrono::seconds(10)}(isPermitted));
    EXPECT_TRUE(capture.displays());
}

} // namespace
} // namespace mnemora::x11
