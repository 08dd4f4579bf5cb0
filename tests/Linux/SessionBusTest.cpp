#include "Linux/Desktop/SessionBus.h"

#include "Support/FileDescriptor.h"
#include "fakes/ScopedVariable.h"
#include "fakes/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <vector>

namespace mnemora::desktop {
namespace {

using namespace std::chrono_literals;

TEST(SessionBus, DoesntAnswerWhileItHangsHoweverManyWaitForIt) {
    const test::TemporaryFolder folder;
    const std::string path = (folder.path() / "bus").string();
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path.size(), sizeof address.sun_path);
    std::memcpy(address.sun_path, path.c_str(), path.size());
    const auto* place = reinterpret_cast<const sockaddr*>(&address);
    const auto made = [] {
        return FileDescriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0));
    };
    const auto bus = made();
    ASSERT_EQ(bind(bus.get(), place, sizeof address), 0);
    ASSERT_EQ(listen(bus.get(), 3), 0);
    const test::ScopedVariable session("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + path);
    EXPECT_FALSE(sessionBusAnswers(100ms)) << "it takes nobody in";

    std::vector<FileDescriptor> waiting;
    do
        waiting.push_back(made());
    while (connect(waiting.back().get(), place, sizeof address) == 0 && waiting.size() < 100);
    ASSERT_EQ(errno, EAGAIN);
    EXPECT_FALSE(sessionBusAnswers(100ms)) << "nor may anybody wait";

    const test::ScopedVariable nowhere("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + path + ".none");
    EXPECT_TRUE(sessionBusAnswers(100ms)) << "there is none";
}

} // namespace
} // namespace mnemora::desktop
