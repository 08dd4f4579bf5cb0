#include "Engines/Channel.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>

namespace mnemora::engines {
namespace {

using Header = std::array<std::uint32_t, 2>; // payload length, kind
using Control = std::array<char, CMSG_SPACE(sizeof(int))>;

/// False once the deadline has passed without the socket becoming ready.
bool waitFor(int socket, short events, const Deadline& deadline) {
    while (true) {
        int left = -1;
        if (deadline) {
            const auto remaining = std::chrono::ceil<std::chrono::milliseconds>(
                *deadline - std::chrono::steady_clock::now());
            left = static_cast<int>(std::clamp<std::int64_t>(remaining.count(), 0, 1'000'000));
        }
        pollfd waiting{.fd = socket, .events = events, .revents = 0};
        const int ready = poll(&waiting, 1, left);
        if (ready > 0)
            return true;
        if (ready == 0 && std::chrono::steady_clock::now() >= *deadline)
            return false;
        if (ready < 0 && errno != EINTR)
            return false;
    }
}

bool mayRetry(ssize_t result) {
    return result < 0 && (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK);
}

bool sendBytes(int socket, std::string_view bytes, int attachment, const Deadline& deadline) {
    alignas(cmsghdr) Control control{};
    while (!bytes.empty()) {
        if (!waitFor(socket, POLLOUT, deadline))
            return false;
        iovec part{.iov_base = const_cast<char*>(bytes.data()), .iov_len = bytes.size()};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        if (attachment >= 0) {
            message.msg_control = control.data();
            message.msg_controllen = control.size();
            cmsghdr* head = CMSG_FIRSTHDR(&message);
            head->cmsg_level = SOL_SOCKET;
            head->cmsg_type = SCM_RIGHTS;
            head->cmsg_len = CMSG_LEN(sizeof(int));
            std::memcpy(CMSG_DATA(head), &attachment, sizeof(int));
        }
        const ssize_t sent = sendmsg(socket, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (mayRetry(sent))
            continue;
        if (sent <= 0)
            return false;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
        attachment = -1;
    }
    return true;
}

/// Keeps the one descriptor that came with a message and closes all others.
void takeAttachment(msghdr& message, FileDescriptor& attachment) {
    for (cmsghdr* head = CMSG_FIRSTHDR(&message); head != nullptr;
         head = CMSG_NXTHDR(&message, head)) {
        if (head->cmsg_level != SOL_SOCKET || head->cmsg_type != SCM_RIGHTS)
            continue;
        const unsigned char* at = CMSG_DATA(head);
        for (auto left = head->cmsg_len - CMSG_LEN(0); left >= sizeof(int); left -= sizeof(int)) {
            int descriptor = -1;
            std::memcpy(&descriptor, at, sizeof(int));
            attachment.reset(descriptor);
            at += sizeof(int);
        }
    }
}

bool receiveBytes(int socket, char* into, std::size_t count, FileDescriptor& attachment,
                  const Deadline& deadline) {
    alignas(cmsghdr) Control control{};
    while (count > 0) {
        if (!waitFor(socket, POLLIN, deadline))
            return false;
        iovec part{.iov_base = into, .iov_len = count};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        // The padded size has room for a second descriptor; the kernel closes what has no room.
        message.msg_controllen = CMSG_LEN(sizeof(int));
        const ssize_t received = recvmsg(socket, &message, MSG_CMSG_CLOEXEC | MSG_DONTWAIT);
        if (mayRetry(received))
            continue;
        if (received <= 0)
            return false;
        takeAttachment(message, attachment);
        into += received;
        count -= static_cast<std::size_t>(received);
    }
    return true;
}

} // namespace

bool sendFrame(int socket, FrameKind kind, std::string_view payload, int attachment,
               const Deadline& deadline) {
    if (payload.size() > maxPayload)
        return false;
    const Header header{static_cast<std::uint32_t>(payload.size()),
                        static_cast<std::uint32_t>(kind)};
    std::string bytes(sizeof(header), '\0');
    std::memcpy(bytes.data(), header.data(), sizeof(header));
    bytes += payload;
    return sendBytes(socket, bytes, attachment, deadline);
}

std::optional<Frame> receiveFrame(int socket, const Deadline& deadline) {
    Frame frame;
    Header header{};
    if (!receiveBytes(socket, reinterpret_cast<char*>(header.data()), sizeof(header),
                      frame.attachment, deadline) ||
        header[0] > maxPayload)
        return std::nullopt;
    frame.kind = static_cast<FrameKind>(header[1]);
    frame.payload.resize(header[0]);
    if (!receiveBytes(socket, frame.payload.data(), frame.payload.size(), frame.attachment,
                      deadline))
        return std::nullopt;
    return frame;
}

} // namespace mnemora::engines
