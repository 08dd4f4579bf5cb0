#include "BrowserHost/PageRelay.h"
#include "Browsers/FakeExtension.h"
#include "Linux/Browsers/PageSocket.h"
#include "Linux/Browsers/PeerProcess.h"

#include <array>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <optional>
#include <poll.h>
#include <unistd.h>

using namespace mnemora;
using namespace mnemora::browsers;

namespace {

/// A relay between a browser and an application that the test plays.
class PageRelayTest : public testing::Test {
  protected:
    PageRelayTest() {
        std::array<int, 2> in{};
        std::array<int, 2> out{};
        EXPECT_EQ(pipe2(in.data(), O_CLOEXEC), 0);
        EXPECT_EQ(pipe2(out.data(), O_CLOEXEC), 0);
        relayIn_.reset(in[0]);
        toRelay_.reset(in[1]);
        fromRelay_.reset(out[0]);
        relayOut_.reset(out[1]);
        thread_ = std::thread([this] {
            PageRelay(relayIn_.get(), relayOut_.get(), folder_ / "pages.sock",
                      executableOf(getpid()), "/opt/browser", std::chrono::milliseconds(20))
                .run();
            relayOut_.reset();
        });
    }
    ~PageRelayTest() override {
        toRelay_.reset();
        thread_.join();
    }

    FileDescriptor accepted(const PageSocket& socket) {
        FileDescriptor peer;
        EXPECT_TRUE(eventually([&] {
            peer = socket.accept(executableOf(getpid()));
            return static_cast<bool>(peer);
        }));
        fcntl(peer.get(), F_SETFL, 0);
        return peer;
    }

    /// Absent at the end of the stream.
    static std::optional<std::string> messageFrom(int fd, FrameReader& reader) {
        std::array<char, 4096> bytes;
        for (;;) {
            if (auto message = reader.next())
                return message;
            pollfd polled{.fd = fd, .events = POLLIN, .revents = 0};
            const ssize_t count =
                poll(&polled, 1, 10'000) > 0 ? read(fd, bytes.data(), bytes.size()) : 0;
            if (count <= 0)
                return std::nullopt;
            reader.append({bytes.data(), static_cast<std::size_t>(count)});
        }
    }

    test::TemporaryFolder folder_;
    FileDescriptor relayIn_, toRelay_, fromRelay_, relayOut_;
    FrameReader browser_{longestFromBrowser};
    std::thread thread_;
};

TEST_F(PageRelayTest, RelaysBothWaysWheneverTheApplicationIsThere) {
    const std::string big(longestFromBrowser - 2, 'x');
    for (int times = 0; times < 2; ++times) {
        const auto socket = PageSocket::listen(folder_ / "pages.sock");
        const auto application = accepted(*socket);
        FrameReader heard(longestFromBrowser);
        EXPECT_EQ(messageFrom(application.get(), heard), R"({"hello":{"browser":"/opt/browser"}})");
        ASSERT_TRUE(writeAll(application.get(), framed(R"({"ask":"state"})")));
        EXPECT_EQ(messageFrom(fromRelay_.get(), browser_), R"({"ask":"state"})");
        std::thread writer(
            [&] { EXPECT_TRUE(writeAll(toRelay_.get(), framed("\"" + big + "\""))); });
        EXPECT_EQ(messageFrom(application.get(), heard), "\"" + big + "\"");
        writer.join();
    }
}

TEST_F(PageRelayTest, GarbageOfTheApplicationEndsThatConnectionOnly) {
    const auto socket = PageSocket::listen(folder_ / "pages.sock");
    for (const auto& garbage : {framed("no json"), std::string(4, '\xff'),
                                framed(std::string(longestToBrowser + 1, ' '))}) {
        const auto application = accepted(*socket);
        ASSERT_TRUE(writeAll(application.get(), garbage));
        EXPECT_TRUE(hangsUp(application.get()));
    }
    const auto application = accepted(*socket);
    ASSERT_TRUE(writeAll(application.get(), framed("{}")));
    EXPECT_EQ(messageFrom(fromRelay_.get(), browser_), "{}")
        << "nothing of the garbage came through";
}

TEST_F(PageRelayTest, SaysNothingToAnyOtherProgram) {
    const auto socket = PageSocket::listen(folder_ / "pages.sock");
    ASSERT_TRUE(connectToPageSocket(folder_ / "pages.sock", executableOf(getpid())));
    EXPECT_FALSE(connectToPageSocket(folder_ / "pages.sock", "/usr/bin/env"));
    EXPECT_FALSE(connectToPageSocket(folder_ / "pages.sock", {})) << "of no installation";
}

TEST_F(PageRelayTest, EndsWithTheBrowserAndAtItsGarbage) {
    ASSERT_TRUE(writeAll(toRelay_.get(), framed("{}") + std::string(4, '\x7f')));
    EXPECT_FALSE(messageFrom(fromRelay_.get(), browser_));
}

} // namespace
