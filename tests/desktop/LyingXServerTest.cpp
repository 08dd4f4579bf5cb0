// The pictures and the windows of an X server that says what can't be.

#include "desktop/LyingXServer.h"
#include "Linux/Screen/X11ScreenCapture.h"
#include "Linux/X11/Connection.h"
#include "fakes/ProcessUse.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <memory>
#include <random>
#include <xcb/xcb.h>

namespace mnemora::x11 {
namespace {

using namespace std::chrono_literals;
using desktop::LyingXServer;
using desktop::put;
using Steady = std::chrono::steady_clock;

constexpr std::uint16_t most16 = 0xFFFF;
constexpr std::uint32_t most32 = 0xFFFFFFFF;
constexpr int width = 320, height = 200;

// Where answers hold what (X Window System Protocol, "Protocol Encoding"; the extensions' XML).
constexpr auto introduction = "introduction", geometry = "14", tree = "15", property = "20",
               picture = "73", extension = "98", sharedPicture = "MIT-SHM 4", monitors = "RANDR 42",
               shape = "SHAPE 8", isShaped = "SHAPE 5", clients = "X-Resource 4";

struct Readable final : FrontWindowGuard, WithheldRegions {
    bool contentMayBeRead() override { return true; }
    std::optional<desktop::Area> withheld() override { return desktop::Area(); }
};

struct Case {
    const char* name;
    std::string question; // which answer; empty for all but the introduction
    std::function<void(std::string& answer)> lie;
    bool isPictured = false;
};

LyingXServer::Lie lieOf(const Case& told) {
    return [told](const std::string& question, std::string& answer) {
        if (question == told.question || (told.question.empty() && question != introduction))
            told.lie(answer);
    };
}

/// Writes these numbers at these places.
template <class... Numbers>
auto says(std::pair<std::size_t, Numbers>... numbers) {
    return [=](std::string& answer) { (put(answer, numbers.first, numbers.second), ...); };
}

template <class Number>
std::pair<std::size_t, Number> at(std::size_t place, Number number) {
    return {place, number};
}

void halve(std::string& answer) {
    answer.resize(answer.size() / 2);
}

/// Any bytes where neither length nor sequence stand.
auto scrambles(unsigned seed) {
    return [random = std::make_shared<std::minstd_rand>(seed)](std::string& answer) {
        for (int times = 0; times < 4; ++times)
            if (const auto place = (*random)() % std::min<std::size_t>(answer.size(), 80);
                place > 7)
                answer[place] = static_cast<char>((*random)());
    };
}

class LyingXServerTest : public testing::Test {
  protected:
    LyingXServerTest() { std::signal(SIGPIPE, SIG_IGN); }

    /// The size of the picture; 0 x 0 for none.
    static std::pair<int, int> pictured(X11ScreenCapture& capture) {
        const auto displays = capture.displays();
        if (!displays || displays->empty())
            return {};
        const auto& display = displays->front();
        const auto image = capture.image(display, display.width, display.height);
        if (!image ||
            image->pixels->size() < image->stride * static_cast<std::size_t>(image->height))
            return {};
        return {image->width, image->height};
    }

    LyingXServer server_;
    std::shared_ptr<Readable> readable_ = std::make_shared<Readable>();
};

TEST_F(LyingXServerTest, GivesNoPictureThatCantBeAndATrueOneAfterwards) {
    const auto none = std::pair(0, 0), whole = std::pair(width, height);
    const auto tooLong = [](std::string& answer) { // says so, and doesn't come
        put(answer, 4, std::uint32_t{1} << 28);
    };
    const auto tooShort = [](std::string& answer) {
        answer.resize(36);
        put(answer, 4, std::uint32_t{1});
    };
    const auto flood = [](std::string& answer) {
        std::string notice = answer.substr(0, 32); // of the same moment
        notice[0] = XCB_MAPPING_NOTIFY;
        std::string notices;
        for (int i = 0; i < 50'000; ++i)
            notices += notice;
        answer = notices + answer;
    };
    const std::vector<Case> cases = {
        {"no screen", introduction, says(at(28, std::uint8_t{0}))},
        {"many screens", introduction, says(at(28, std::uint8_t{255}))},
        {"a long vendor", introduction, says(at(24, most16))},
        {"many formats", introduction, says(at(29, std::uint8_t{255}))},
        {"a screen without pixels", geometry, says(at(16, std::uint32_t{0}))},
        {"a vast screen", geometry, says(at(16, most32)), true}, // its monitors are as they are
        {"many monitors", monitors, says(at(12, std::uint32_t{1000})), true}, // the first is there
        {"many outputs", monitors, says(at(38, most16))},
        {"a vast monitor", monitors, says(at(44, most32))},
        {"a monitor elsewhere", monitors, says(at(40, std::uint32_t{0x80008000}))},
        {"a monitor without pixels", monitors, says(at(44, std::uint32_t{0}))},
        {"another depth, shared", sharedPicture, says(at(1, std::uint8_t{8})), true},
        {"no pixels, shared", sharedPicture, says(at(12, std::uint32_t{0})), true},
        {"many pixels, shared", sharedPicture, says(at(12, most32)), true},
        {"half an answer", sharedPicture, halve},
        {"no answers", "", [](std::string& answer) { answer.clear(); }},
        {"half answers", "", halve},
        {"answers without end", "", tooLong},
        {"other pixels than asked for", picture, tooShort},
        {"another depth", picture, says(at(1, std::uint8_t{8}))},
        {"pixels without end", picture, tooLong},
        {"notices before each answer", "", flood, true},
    };
    for (const Case& told : cases) {
        auto before = test::ProcessUse::now();
        for (const bool isFromTheStart : {false, true}) {
            SCOPED_TRACE(std::string(told.name) + (isFromTheStart ? ", from the start" : ""));
            const auto lie = [&, one = lieOf(told)](const std::string& question,
                                                    std::string& answer) {
                one(question, answer);
                if (told.question == picture && question == sharedPicture)
                    put(answer, 12, 0U); // so that they are asked for
            };
            if (isFromTheStart)
                server_.tell(lie);
            X11ScreenCapture capture({readable_, readable_, [] { return true; }});
            server_.tell(lie);
            const auto began = Steady::now();
            const bool isWhole =
                told.isPictured || (told.question == introduction && !isFromTheStart);
            EXPECT_EQ(pictured(capture), isWhole ? whole : none);
            EXPECT_LT(Steady::now() - began, 7s);
            server_.tell(nullptr);
            (void)pictured(capture);
            EXPECT_EQ(pictured(capture), whole) << "the tick after next";
        }
        EXPECT_TRUE(before.comesBack()) << before << "; now " << test::ProcessUse::now();
    }
}

/// What a tick asks about windows.
void askAll(Connection& connection, xcb_window_t window) {
    (void)connection.takeNotices();
    (void)connection.countChanges();
    (void)connection.isScreenCovered();
    (void)connection.activeWindow();
    for (const auto client : connection.clients())
        (void)connection.identity(client);
    EXPECT_LT(connection.title(window).value_or("").size(), 100'000U);
    (void)connection.stack([&](Window each) { return connection.identity(each); });
}

TEST_F(LyingXServerTest, AsksAboutWindowsWithoutReadingBeyondTheAnswers) {
    const std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> own(
        xcb_connect(nullptr, nullptr), xcb_disconnect);
    const auto* screen = xcb_setup_roots_iterator(xcb_get_setup(own.get())).data;
    const auto window = xcb_generate_id(own.get());
    xcb_create_window(own.get(), 0, window, screen->root, 0, 0, 99, 99, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual, 0, nullptr);
    for (const xcb_atom_t name : {XCB_ATOM_WM_NAME, XCB_ATOM_WM_CLASS})
        xcb_change_property(own.get(), XCB_PROP_MODE_REPLACE, window, name, XCB_ATOM_STRING, 8, 5,
                            "a\0true");
    xcb_map_window(own.get(), window);
    xcb_flush(own.get());
    std::vector<Case> cases = {
        {"a long value", property, says(at(16, most32))},
        {"a value of wide units", property,
         says(at(1, std::uint8_t{255}), at(16, std::uint32_t{9}))},
        {"more to come", property, says(at(12, most32))},
        {"many windows", tree, says(at(16, most16))},
        {"a window that is its own parent", tree, says(at(12, window))},
        {"many rectangles", shape, says(at(8, most32))},
        {"a shape", isShaped, says(at(8, std::uint8_t{1}))},
        {"many clients", clients, says(at(8, most32), at(40, most32))},
        {"an extension at another number", extension, says(at(9, std::uint8_t{1}))},
    };
    for (unsigned seed = 0; seed < 300; ++seed)
        cases.push_back({"any bytes", "", scrambles(seed)});
    for (const Case& told : cases) {
        SCOPED_TRACE(told.name);
        const auto connection = Connection::open();
        ASSERT_TRUE(connection);
        connection->followActiveWindow();
        server_.tell(lieOf(told));
        askAll(*connection, window);
        server_.tell(nullptr);
        const auto again = connection->isAlive() ? connection->title(window) : "a";
        EXPECT_EQ(again.value_or("").substr(0, 1), "a") << "when it tells the truth again";
    }
}

} // namespace
} // namespace mnemora::x11
