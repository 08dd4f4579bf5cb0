#include "Browsers/FakeExtension.h"

#include <array>
#include <chrono>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace mnemora::browsers {

FileDescriptor connectTo(const std::filesystem::path& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        return {};
    return socket;
}

bool hangsUp(int socket) {
    pollfd polled{.fd = socket, .events = POLLIN, .revents = 0};
    std::array<char, 4096> bytes;
    while (poll(&polled, 1, 10'000) > 0)
        if (recv(socket, bytes.data(), bytes.size(), 0) <= 0)
            return true;
    return false;
}

FakeExtension::FakeExtension(const std::filesystem::path& socket, const std::string& executable,
                             Answer answer)
    : socket_(connectTo(socket)) {
    say(Json{{"hello", {{"browser", executable}}}}.dump());
    thread_ = std::thread([this, answer = std::move(answer)] { run(answer); });
}

FakeExtension::~FakeExtension() {
    shutdown(socket_.get(), SHUT_RDWR);
    thread_.join();
}

void FakeExtension::say(const std::string& message) {
    const auto frame = framed(message); // short enough for the socket to take it whole
    [[maybe_unused]] const auto sent =
        send(socket_.get(), frame.data(), frame.size(), MSG_NOSIGNAL);
}

void FakeExtension::run(const Answer& answer) {
    FrameReader reader(longestToBrowser);
    std::array<char, 4096> bytes;
    for (ssize_t count = 0; (count = recv(socket_.get(), bytes.data(), bytes.size(), 0)) > 0;) {
        reader.append({bytes.data(), static_cast<std::size_t>(count)});
        while (const auto request = reader.next())
            if (const auto reply = answer(Json::parse(*request)))
                say(reply->dump());
    }
}

} // namespace mnemora::browsers
