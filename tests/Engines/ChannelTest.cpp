#include "Engines/Channel.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace mnemora::engines {
namespace {

/// Sends a frame without payload that carries the writing end of a pipe several times; closes it.
void sendCopies(int socket, FileDescriptor end, std::size_t copies) {
    std::array<std::uint32_t, 2> header{0, static_cast<std::uint32_t>(FrameKind::picture)};
    iovec part{.iov_base = header.data(), .iov_len = sizeof header};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(8 * sizeof(int))> control{};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = CMSG_SPACE(copies * sizeof(int));
    cmsghdr* head = CMSG_FIRSTHDR(&message);
    head->cmsg_level = SOL_SOCKET;
    head->cmsg_type = SCM_RIGHTS;
    head->cmsg_len = CMSG_LEN(copies * sizeof(int));
    const int descriptor = end.get();
    for (std::size_t i = 0; i < copies; ++i)
        std::memcpy(CMSG_DATA(head) + i * sizeof(int), &descriptor, sizeof(int));
    ASSERT_EQ(sendmsg(socket, &message, MSG_NOSIGNAL), static_cast<ssize_t>(sizeof header));
}

TEST(Channel, LeavesNoDescriptorOpenBesidesTheAttachment) {
    for (const std::size_t copies : {1U, 2U, 3U, 8U}) {
        std::array<int, 2> sockets{};
        std::array<int, 2> ends{};
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets.data()), 0);
        ASSERT_EQ(pipe(ends.data()), 0);
        const FileDescriptor ours(sockets[0]);
        const FileDescriptor theirs(sockets[1]);
        const FileDescriptor reading(ends[0]);
        sendCopies(theirs.get(), FileDescriptor(ends[1]), copies);
        const auto soon = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        auto frame = receiveFrame(ours.get(), soon);
        ASSERT_TRUE(frame);
        EXPECT_TRUE(frame->attachment);
        pollfd end{.fd = reading.get(), .events = POLLIN, .revents = 0};
        EXPECT_EQ(poll(&end, 1, 0), 0) << "the attachment is open";
        frame.reset();
        EXPECT_EQ(poll(&end, 1, 5000), 1) << "another of " << copies << " is still open";
    }
}

} // namespace
} // namespace mnemora::engines
