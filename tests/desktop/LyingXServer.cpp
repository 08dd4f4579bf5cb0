#include "desktop/LyingXServer.h"

#include <array>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <list>
#include <poll.h>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

namespace mnemora::desktop {
namespace {

template <class Number>
Number numberAt(std::string_view bytes, std::size_t at) {
    Number number{};
    std::memcpy(&number, bytes.data() + at, sizeof number);
    return number;
}

sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

FileDescriptor unixSocket() {
    return FileDescriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
}

/// Adds what there is to read; false at the end.
bool receive(int from, std::string& to) {
    std::array<char, 65536> bytes;
    const auto count = read(from, bytes.data(), bytes.size());
    to.append(bytes.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
    return count > 0;
}

std::string socketOf(const std::string& display) {
    return "/tmp/.X11-unix/X" + display.substr(display.find(':') + 1);
}

} // namespace

/// One client's conversation. Layouts of requests and answers: X Window System Protocol,
/// "Protocol Encoding".
struct LyingXServer::Talk {
    int client;
    FileDescriptor server;
    std::string asked = {}, answered = {}; // bytes not looked at yet
    bool isIntroduced = false;
    bool hasAskedFirst = false;
    std::uint16_t sequence = 0;
    std::map<std::uint16_t, Question> questions = {};
    std::map<std::uint16_t, std::string> extensionsAsked = {};
    std::map<int, std::string> extensions = {}; // by major opcode
};

LyingXServer::LyingXServer()
    : real_(std::getenv("DISPLAY")), display_(":" + std::to_string(10'000 + getpid())),
      listener_(unixSocket().release()) {
    const auto address = addressOf(socketOf(display_));
    bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    listen(listener_.get(), 8);
    thread_ = std::thread([this] { serve(); });
    setenv("DISPLAY", display_.c_str(), 1);
}

LyingXServer::~LyingXServer() {
    setenv("DISPLAY", real_.c_str(), 1);
    isOver_ = true;
    shutdown(listener_.get(), SHUT_RDWR);
    thread_.join();
    std::filesystem::remove(socketOf(display_));
}

void LyingXServer::tell(Lie lie) {
    const std::lock_guard lock(mutex_);
    lie_ = std::move(lie);
}

void LyingXServer::serve() {
    std::list<std::thread> talks;
    for (FileDescriptor client; client.reset(accept(listener_.get(), nullptr, nullptr)), client;)
        talks.emplace_back([this, peer = client.release()] { relay(peer); });
    for (auto& talk : talks)
        talk.join();
}

void LyingXServer::relay(int client) {
    const FileDescriptor owned(client);
    Talk talk{.client = client, .server = unixSocket()};
    const auto address = addressOf(socketOf(real_));
    if (connect(talk.server.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
        0)
        return;
    while (!isOver_) {
        pollfd ends[] = {{client, POLLIN, 0}, {talk.server.get(), POLLIN, 0}};
        poll(ends, std::size(ends), 50);
        if ((ends[0].revents != 0 && !receive(client, talk.asked)) ||
            (ends[1].revents != 0 && !receive(talk.server.get(), talk.answered)))
            return;
        takeQuestions(talk);
        takeAnswers(talk);
    }
}

void LyingXServer::takeQuestions(Talk& talk) {
    std::string& bytes = talk.asked;
    while (bytes.size() >= 12 || (talk.hasAskedFirst && bytes.size() >= 4)) {
        std::size_t length = numberAt<std::uint16_t>(bytes, 2) * 4U;
        if (!talk.hasAskedFirst) {
            const auto padded = [](std::size_t size) { return (size + 3) / 4 * 4; };
            length = 12 + padded(numberAt<std::uint16_t>(bytes, 6)) +
                     padded(numberAt<std::uint16_t>(bytes, 8));
        }
        if (bytes.size() < length || length == 0) // nobody here asks the very long ones
            return;
        const std::string request = bytes.substr(0, length);
        bytes.erase(0, length);
        (void)writeAll(talk.server.get(), request, 1000);
        if (!std::exchange(talk.hasAskedFirst, true))
            continue;
        const auto opcode = static_cast<std::uint8_t>(request[0]);
        const auto extension = talk.extensions.find(opcode);
        talk.questions[++talk.sequence] =
            extension == talk.extensions.end()
                ? std::to_string(opcode)
                : extension->second + " " + std::to_string(static_cast<std::uint8_t>(request[1]));
        constexpr std::uint8_t queryExtension = 98;
        if (opcode == queryExtension)
            talk.extensionsAsked[talk.sequence] =
                request.substr(8, numberAt<std::uint16_t>(request, 4));
    }
}

void LyingXServer::takeAnswers(Talk& talk) {
    std::string& bytes = talk.answered;
    std::string out;
    while (bytes.size() >= (talk.isIntroduced ? 32 : 8)) {
        constexpr char reply = 1, genericEvent = 35;
        std::size_t length = 32;
        if (!talk.isIntroduced)
            length = 8 + numberAt<std::uint16_t>(bytes, 6) * std::size_t{4};
        else if (bytes[0] == reply || (bytes[0] & 0x7f) == genericEvent)
            length += numberAt<std::uint32_t>(bytes, 4) * std::size_t{4};
        if (bytes.size() < length)
            break;
        std::string answer = bytes.substr(0, length);
        bytes.erase(0, length);
        const auto sequence = numberAt<std::uint16_t>(answer, 2);
        const bool isAnswer = !talk.isIntroduced || answer[0] == reply;
        const Question question =
            talk.isIntroduced ? talk.questions[sequence] : Question("introduction");
        if (const auto name = talk.extensionsAsked.find(sequence);
            talk.isIntroduced && isAnswer && name != talk.extensionsAsked.end())
            talk.extensions[static_cast<std::uint8_t>(answer[9])] = name->second;
        talk.isIntroduced = true;
        const std::lock_guard lock(mutex_);
        if (isAnswer && lie_)
            lie_(question, answer);
        out += answer;
    }
    if (!out.empty() && !writeAll(talk.client, out, 5000))
        shutdown(talk.client, SHUT_RDWR);
}

} // namespace mnemora::desktop
