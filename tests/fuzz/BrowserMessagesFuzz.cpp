// Fuzz target: the bytes that a browser's host program sends, cut anywhere, through the connection
// that serves it; and a text that may be one of the scripts.

#include "Linux/Browsers/BrowserConnection.h"
#include "Linux/Browsers/PageScript.h"
#include "fuzz/FuzzInput.h"

#include <array>
#include <sys/socket.h>
#include <utility>

namespace {

using namespace mnemora;
using namespace mnemora::browsers;

constexpr std::uint64_t asked = 7;

void checkFrames(std::string_view bytes, std::size_t piece) {
    FrameReader whole(longestFromBrowser);
    FrameReader pieces(longestFromBrowser);
    whole.append(bytes);
    std::vector<std::string> fromWhole;
    std::vector<std::string> fromPieces;
    while (auto message = whole.next())
        fromWhole.push_back(std::move(*message));
    for (std::size_t at = 0; at < bytes.size(); at += piece) {
        pieces.append(bytes.substr(at, piece));
        while (auto message = pieces.next())
            fromPieces.push_back(std::move(*message));
    }
    fuzz::require(fromWhole == fromPieces && whole.bad() == pieces.bad());
}

void checkConnection(std::string_view bytes) {
    std::array<int, 2> ends{};
    fuzz::require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) == 0);
    FileDescriptor peer(ends[1]);
    BrowserConnection connection{FileDescriptor(ends[0]), {}};
    fuzz::require(connection.ask(asked, PageQuestion::text, true, {}));
    (void)send(peer.get(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    peer.reset();
    std::vector<PageAnswer> answers;
    for (auto messages = connection.read();
         messages && connection.take(std::move(*messages), answers);)
        messages = connection.read();
    // Only the one question can have been answered, and only by a browser that we know.
    fuzz::require(answers.size() <= 1 && (answers.empty() || answers.front().request == asked));
    fuzz::require(answers.empty() || connection.bundleIdentifier());
    connection.abandon(answers);
    fuzz::require(answers.size() == 1);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::FuzzInput input(data, size);
    const std::size_t piece = std::size_t{1} + input.byte();
    checkFrames(input.rest(), piece);
    checkConnection(input.rest());
    (void)parsePageMessage(input.rest());
    (void)parsePageScript(input.rest());
    return 0;
}
