// The screen of a real Wayland session: the compositor's own protocol, and its desktop portal with
// a real media server. Runs inside scripts/wayland-session.

#include "Linux/Screen/WaylandScreenCapture.h"

#include "Linux/Engines/EngineTextRecognizer.h"
#include "Screen/FakePortal.h"
#include "desktop/Program.h"
#include "fakes/CapturedStderr.h"
#include "fakes/Eventually.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <optional>
#include <thread>

namespace mnemora::wayland {
namespace {

using namespace std::chrono_literals;
using desktop::Program;

constexpr test::Eventually eventually{30s, 20ms};

std::filesystem::path folder(const char* variable) {
    return std::getenv(variable);
}

void sway(const std::string& command) {
    ASSERT_EQ(std::system(("swaymsg -q '" + command + "'").c_str()), 0);
}

struct OpenGuard final : FrontWindowGuard {
    bool contentMayBeRead() override { return true; }
};
struct NoRegions final : WithheldRegions {
    std::optional<desktop::Area> withheld() override { return desktop::Area(); }
};

/// A terminal that fills the screen and shows one line.
class TextWindow {
  public:
    explicit TextWindow(const std::string& text)
        : terminal_({"foot", "--fullscreen", "--font=DejaVu Sans Mono:size=20", "sh", "-c",
                     "echo '" + text + "'; touch $XDG_RUNTIME_DIR/shown; sleep 1000"}) {
        const auto mark = folder("XDG_RUNTIME_DIR") / "shown";
        EXPECT_TRUE(eventually([&] { return std::filesystem::remove(mark); }));
    }

  private:
    Program terminal_;
};

class WaylandScreenTest : public ::testing::Test {
  protected:
    WaylandScreenCapture& run() {
        capture_.emplace(CaptureChecks{.guard = std::make_shared<OpenGuard>(),
                                       .regions = std::make_shared<NoRegions>(),
                                       .hasRoom = [] { return true; },
                                       .windowsChangedAt = [this] { return changedAt_.load(); }},
                         thread_,
                         portal::ScreenCastPortal::Options{
                             .token = token_,
                             .keepToken = [this](const std::string& kept) { token_ = kept; },
                             .pause = 5s} // longer than services need to come back
        );
        capture_->waitUntilKnown(20s);
        return *capture_;
    }
    Outcome<Image> picture() {
        const auto displays = capture_->displays();
        if (!displays)
            return Failure{displays.description()};
        if (displays->empty())
            return Failure{"no display"};
        const auto& first = displays->front();
        return capture_->image(first, first.width, first.height);
    }
    /// Whether pictures come to hold the text; a window needs a moment to be drawn.
    bool reads(const std::string& text) {
        return eventually([&] {
            const auto image = picture();
            if (!image)
                return false;
            for (const auto& line : recognizer_.recognize(*image))
                if (line.bestCandidate && line.bestCandidate->find(text) != std::string::npos)
                    return true;
            return false;
        });
    }

    std::string token_; // the thread's while a capture lives
    std::atomic<std::chrono::steady_clock::time_point> changedAt_ =
        std::chrono::steady_clock::time_point();

  private:
    desktop::GLibThread thread_{"test-listener"};
    EngineTextRecognizer recognizer_{EngineSettings::ofInstallation()};
    std::optional<WaylandScreenCapture> capture_;
};

TEST_F(WaylandScreenTest, CopiesTheScreenWhereThereIsNoPortal) {
    const test::PrivateBus withoutServices;
    const test::CapturedStderr log;
    auto& capture = run();
    EXPECT_TRUE(capture.isPermitted()) << "without asking";
    EXPECT_EQ(capture.facts().way, ScreenConsent::Way::compositor);
    EXPECT_EQ(log.text(), "[mnemora] the screen is read by the compositor's wlr-screencopy\n");
    const TextWindow window("walnut shelves");
    EXPECT_TRUE(reads("walnut shelves"));
    for (const char* turn : {"90", "180", "270", "flipped", "flipped-90", "flipped-270"}) {
        sway("output HEADLESS-1 transform " + std::string(turn));
        EXPECT_TRUE(reads("walnut shelves")) << turn;
    }
    sway("output HEADLESS-1 transform normal");
}

TEST_F(WaylandScreenTest, FindsACompositorThatWasStartedAnew) {
    const test::PrivateBus withoutServices;
    auto& capture = run();
    ASSERT_TRUE(capture.isPermitted());
    EXPECT_NE(std::system("swaymsg -q exit"), 0) << "it goes before it could answer";
    ASSERT_TRUE(eventually([&] { return !capture.displays(); }));
    const Program anew({"sway", "-c", std::getenv("SWAY_CONFIG")});
    EXPECT_TRUE(eventually([&] { return capture.isPermitted() && picture(); }));
}

class PortalScreenTest : public WaylandScreenTest {
  protected:
    void SetUp() override {
        const auto config = folder("HOME") / ".config/xdg-desktop-portal-wlr";
        std::filesystem::create_directories(config);
        std::ofstream(config / "config") << "[screencast]\nchooser_type=none\n";
        startServer();
    }
    void startServer() {
        std::filesystem::remove(folder("XDG_RUNTIME_DIR") / "pipewire-0");
        server_.emplace(std::vector<std::string>{"pipewire"});
        ASSERT_TRUE(eventually(
            [] { return std::filesystem::exists(folder("XDG_RUNTIME_DIR") / "pipewire-0"); }));
        manager_.emplace(std::vector<std::string>{"wireplumber"});
        // The backend isn't started by the bus because it needs the library here.
        backend_.emplace(std::vector<std::string>{"env", "LD_PRELOAD=" WITHOUT_GRAPHICS_CARD,
                                                  "/usr/libexec/xdg-desktop-portal-wlr"});
    }
    void stopServer() {
        backend_.reset();
        manager_.reset();
        server_.reset();
    }

    void signalBackend(int number) { backend_->signal(number); }

  private:
    std::optional<Program> server_;
    std::optional<Program> manager_;
    std::optional<Program> backend_;
};

TEST_F(PortalScreenTest, CastsTheScreenOnceAllowed) {
    auto& capture = run();
    EXPECT_EQ(capture.facts().way, ScreenConsent::Way::portal);
    EXPECT_FALSE(capture.isPermitted()) << "before anybody was asked";
    EXPECT_TRUE(capture.displays()->empty());
    capture.ask();
    ASSERT_TRUE(eventually([&] { return capture.isPermitted(); }));
    {
        const TextWindow window("brass hinges");
        ASSERT_TRUE(reads("brass hinges"));
        for (int still = 0; still < 3; ++still)
            EXPECT_TRUE(picture()) << "of a screen on which nothing changes";
    }
    const TextWindow window("marble stairs");
    EXPECT_TRUE(reads("marble stairs"));
}

// Each of these in a session of its own, with a portal that has known no other backend.
using RestartedPortalScreenTest = PortalScreenTest;
using HangingPortalScreenTest = PortalScreenTest;

TEST_F(RestartedPortalScreenTest, GoesOnAfterPipeWireWasKilled) {
    auto& capture = run();
    capture.ask();
    ASSERT_TRUE(eventually([&] { return capture.isPermitted(); }));
    const TextWindow window("marble stairs");
    ASSERT_TRUE(reads("marble stairs"));
    stopServer();
    ASSERT_TRUE(eventually([&] { return !capture.isPermitted(); }));
    EXPECT_FALSE(picture());
    startServer();
    EXPECT_TRUE(eventually([&] { return capture.isPermitted(); })) << "without being asked again";
    EXPECT_TRUE(reads("marble stairs"));
}

// The cast's last picture may be of a window that has gone; the compositor's own copy is of now.
TEST_F(HangingPortalScreenTest, GivesNothingOldWhileTheBackendHangs) {
    auto& capture = run();
    capture.ask();
    ASSERT_TRUE(eventually([&] { return capture.isPermitted(); }));
    const TextWindow window("cedar planks");
    ASSERT_TRUE(reads("cedar planks"));
    ASSERT_TRUE(picture());
    signalBackend(SIGSTOP);
    EXPECT_TRUE(picture()) << "nothing has changed";
    const TextWindow other("copper kettle");
    changedAt_ = std::chrono::steady_clock::now();
    const bool readsNew = reads("copper kettle");
    signalBackend(SIGCONT);
    EXPECT_TRUE(readsNew);
}

} // namespace
} // namespace mnemora::wayland
