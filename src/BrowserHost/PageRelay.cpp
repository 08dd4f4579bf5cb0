#include "BrowserHost/PageRelay.h"

#include "Linux/Browsers/PageMessages.h"
#include "Linux/Browsers/PageSocket.h"

#include <array>
#include <cerrno>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace mnemora::browsers {
namespace {

/// An application that takes nothing for this long is as good as gone.
constexpr timeval sendTime{.tv_sec = 2, .tv_usec = 0};

/// False at the end of the stream.
bool readInto(FrameReader& reader, int fd) {
    std::array<char, 64 << 10> bytes;
    const ssize_t count = read(fd, bytes.data(), bytes.size());
    if (count > 0)
        reader.append({bytes.data(), static_cast<std::size_t>(count)});
    return count > 0 || (count < 0 && (errno == EINTR || errno == EAGAIN));
}

} // namespace

PageRelay::PageRelay(int fromBrowser, int toBrowser, std::filesystem::path socket,
                     std::filesystem::path application, std::string browser,
                     std::chrono::milliseconds pause)
    : fromBrowser_(fromBrowser), toBrowser_(toBrowser), socket_(std::move(socket)),
      program_(std::move(application)), browser_(std::move(browser)), pause_(pause) {}

void PageRelay::run() {
    for (;;) {
        if (!application_ && timeUntilAttempt() <= 0)
            connect();
        std::array polled{pollfd{.fd = fromBrowser_, .events = POLLIN, .revents = 0},
                          pollfd{.fd = application_.get(), .events = POLLIN, .revents = 0}};
        if (poll(polled.data(), polled.size(), application_ ? -1 : timeUntilAttempt()) < 0)
            continue;
        if (polled[0].revents != 0 && !relayFromBrowser())
            return;
        if (application_ && polled[1].revents != 0 && !relayFromApplication())
            disconnect();
    }
}

int PageRelay::timeUntilAttempt() const {
    using namespace std::chrono;
    const auto left = ceil<milliseconds>(nextAttempt_ - steady_clock::now());
    return static_cast<int>(std::max<milliseconds::rep>(left.count(), 0));
}

void PageRelay::connect() {
    nextAttempt_ = std::chrono::steady_clock::now() + pause_;
    application_ = connectToPageSocket(socket_, program_);
    if (!application_)
        return;
    setsockopt(application_.get(), SOL_SOCKET, SO_SNDTIMEO, &sendTime, sizeof sendTime);
    if (!writeAll(application_.get(), framed(helloMessage({.browser = browser_}))))
        disconnect();
}

void PageRelay::disconnect() {
    application_.reset();
    applicationInput_ = FrameReader(longestToBrowser);
    nextAttempt_ = std::chrono::steady_clock::now() + pause_;
}

bool PageRelay::relayFromBrowser() {
    const bool open = readInto(browserInput_, fromBrowser_);
    // What comes while nobody listens is dropped; the application asks when it is there.
    while (const auto message = browserInput_.next())
        if (application_ && !writeAll(application_.get(), framed(*message)))
            disconnect();
    return open && !browserInput_.bad();
}

bool PageRelay::relayFromApplication() {
    if (!readInto(applicationInput_, application_.get()))
        return false;
    while (const auto message = applicationInput_.next()) {
        // The browser would end this program at the first message that is no JSON.
        if (!nlohmann::json::accept(*message) || !writeAll(toBrowser_, framed(*message)))
            return false;
    }
    return !applicationInput_.bad();
}

} // namespace mnemora::browsers
