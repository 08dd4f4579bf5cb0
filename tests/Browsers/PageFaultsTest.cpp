// Extensions and their host programs that flood, don't listen or come and go, beside one that is
// in order.

#include "Browsers/FakeExtension.h"
#include "Linux/Browsers/BrowserConnections.h"
#include "Linux/Browsers/PeerProcess.h"
#include "fakes/ProcessUse.h"

#include <atomic>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace mnemora;
using namespace mnemora::browsers;
using Json = nlohmann::json;
using namespace std::chrono_literals;
using test::LongestWait;
using test::ProcessUse;

namespace {

constexpr auto brave = "com.brave.Browser";
/// The main thread allows 45 ms; whom it waits for may need longer for its own turn.
constexpr auto mainThreadPatience = 45ms;
constexpr auto mainThreadBound = 400ms;

const std::string hello = framed(R"({"hello":{"browser":"/usr/lib/chromium/chromium"}})");

class PageFaultsTest : public testing::Test {
  protected:
    PageFaultsTest() {
        all_ = BrowserConnections::create(folder_ / "pages.sock", executableOf(getpid()));
        good_.emplace(folder_ / "pages.sock", "/opt/brave.com/brave/brave",
                      [](const Json& request) -> std::optional<Json> {
                          if (!request.contains("id"))
                              return std::nullopt;
                          return Json{{"id", request["id"]}, {"focused", true}, {"address", "a:"}};
                      });
        EXPECT_TRUE(eventually([&] { return all_->has(brave); }));
    }
    ~PageFaultsTest() override {
        good_.reset();
        all_.reset();
    }

    /// What the main thread asks of the browser that is in order.
    void askOnMainThread() {
        (void)longest_([&] { return all_->has(brave); });
        (void)longest_(
            [&] { return all_->askFocused(brave, PageQuestion::address, mainThreadPatience); });
        (void)longest_([&] { return all_->lastState(brave, 1500ms); });
    }
    void expectGoodAnswer() {
        const auto answer = all_->askFocused(brave, PageQuestion::address, 10s);
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->address, "a:");
    }

    test::TemporaryFolder folder_;
    std::unique_ptr<BrowserConnections> all_;
    std::optional<FakeExtension> good_;
    LongestWait longest_;
};

/// Sends the same bytes over and over, connecting anew whenever it is hung up on.
class Flood {
  public:
    Flood(const std::filesystem::path& socket, std::string bytes)
        : thread_([this, socket, bytes = std::move(bytes)] {
              while (!isOver_) {
                  const auto peer = connectTo(socket);
                  const timeval patience{.tv_sec = 0, .tv_usec = 50'000};
                  setsockopt(peer.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
                  bool isTaken = peer && writeAll(peer.get(), hello);
                  while (isTaken && !isOver_) {
                      isTaken = send(peer.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) >= 0;
                      sent_ += isTaken ? bytes.size() : 0;
                  }
              }
          }) {}
    ~Flood() {
        isOver_ = true;
        thread_.join();
    }
    Flood(const Flood&) = delete;
    Flood& operator=(const Flood&) = delete;

    [[nodiscard]] std::size_t sent() const { return sent_; }

  private:
    std::atomic<bool> isOver_ = false;
    std::atomic<std::size_t> sent_ = 0;
    std::thread thread_;
};

std::string repeated(const std::string& text, std::size_t times) {
    std::string all;
    for (std::size_t i = 0; i < times; ++i)
        all += text;
    return all;
}

TEST_F(PageFaultsTest, OnesThatFloodCostTheOthersNoAnswer) {
    auto before = ProcessUse::now();
    const std::vector<std::pair<const char*, std::string>> floods = {
        {"small states", repeated(framed(R"({"state":{"focused":true,"address":"x:"}})"), 2000)},
        {"answers to nothing", repeated(framed(R"({"id":7,"address":"x:"})"), 2000)},
        {"the least that is a message", repeated(framed("{\"id\":1}"), 5000)},
        {"the longest message",
         framed(R"({"state":{"address":")" + std::string((4 << 20) - 64, 'x') + R"("}})")},
        {"the deepest message",
         framed(R"({"state":)" + std::string(1 << 20, '[') + std::string(1 << 20, ']') + "}")},
        {"very many values", framed("{\"state\":[" + repeated("0,", 1 << 20) + "0]}")},
    };
    for (const auto& [what, bytes] : floods) {
        LongestWait longest;
        std::swap(longest, longest_);
        {
            const Flood one(folder_ / "pages.sock", bytes);
            const Flood other(folder_ / "pages.sock", bytes);
            ASSERT_TRUE(eventually([&] { return one.sent() > 0 && other.sent() > 0; })) << what;
            const auto end = std::chrono::steady_clock::now() + 300ms;
            while (std::chrono::steady_clock::now() < end)
                askOnMainThread();
        }
        EXPECT_LT(longest_.longest(), mainThreadBound) << what;
        RecordProperty(std::string("longest_ms, ") + what,
                       std::to_string(longest_.longest().count()));
        expectGoodAnswer();
    }
    EXPECT_TRUE(before.comesBack()) << before << " before, " << ProcessUse::now() << " after";
}

TEST_F(PageFaultsTest, OneThatReadsNothingIsDroppedInTheEnd) {
    auto before = ProcessUse::now();
    const auto deaf = connectTo(folder_ / "pages.sock");
    ASSERT_TRUE(writeAll(deaf.get(), hello));
    ASSERT_TRUE(eventually([&] { return all_->has("com.google.Chrome"); }));
    for (int times = 0; times < 100; ++times)
        (void)longest_(
            [&] { return all_->askFocused("com.google.Chrome", PageQuestion::text, 0ms); });
    EXPECT_TRUE(eventually([&] { return !all_->has("com.google.Chrome"); }));
    expectGoodAnswer();
    EXPECT_LT(longest_.longest(), mainThreadBound);
    before.descriptors += 1; // this end's own
    EXPECT_TRUE(before.comesBack()) << before << " before, " << ProcessUse::now() << " after";
}

TEST_F(PageFaultsTest, OnesThatComeAndGoLeaveNothingBehind) {
    auto before = ProcessUse::now();
    for (int times = 0; times < 500; ++times) {
        const auto peer = connectTo(folder_ / "pages.sock");
        const auto part = static_cast<std::size_t>(times) % (hello.size() + 1);
        (void)send(peer.get(), hello.data(), part, MSG_NOSIGNAL);
        if (times % 50 == 0)
            askOnMainThread();
    }
    expectGoodAnswer();
    EXPECT_LT(longest_.longest(), mainThreadBound);
    EXPECT_TRUE(before.comesBack()) << before << " before, " << ProcessUse::now() << " after";
}

} // namespace
