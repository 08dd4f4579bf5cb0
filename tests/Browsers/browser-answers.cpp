// Runs the script host as the application does, for tests with a real browser. Reads lines on
// standard input and answers each with one line of JSON:
//   front IDENTIFIER     the application in front from now on ("front" alone: none)
//   withhold WORD        titles that hold the word are withheld
//   run SCRIPT           {"failed": ..., "text": ..., "ms": ...}
//   main SCRIPT          the same on the main thread
//   extension IDENTIFIER whether its extension is connected
//   conceal WORD         pages with the word in their address are never read
//   guard yes|no         what guards the window in front says from now on; "no" at the start
// With --raw behind the host program it hands each line, a JSON object, to the extension and prints
// its answer: for what the program itself never asks.
#include "Linux/Accessibility/AccessibleWindows.h"
#include "Linux/Browsers/AccessiblePages.h"
#include "Linux/Browsers/BrowserScriptHost.h"
#include "Linux/Browsers/MessageFrames.h"
#include "Linux/Browsers/PageSocket.h"
#include "Support/FileDescriptor.h"

#include <array>
#include <chrono>
#include <iostream>
#include <mutex>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <string_view>
#include <sys/socket.h>
#include <thread>

using namespace mnemora;
using Json = nlohmann::json;

namespace {

struct Desktop : FrontWindowGuard {
    std::mutex mutex;
    bool guardSaysYes = false;        // guarded by mutex
    std::optional<std::string> front; // guarded by mutex
    std::string withheldWord;         // guarded by mutex
    std::string concealedWord;        // guarded by mutex

    std::optional<std::string> frontmost() {
        const std::lock_guard lock(mutex);
        return front;
    }
    bool withholds(const std::string& title) {
        const std::lock_guard lock(mutex);
        return !withheldWord.empty() && title.find(withheldWord) != std::string::npos;
    }
    bool conceals(const std::string& address) {
        const std::lock_guard lock(mutex);
        return !concealedWord.empty() && address.find(concealedWord) != std::string::npos;
    }
    bool contentMayBeRead() override {
        const std::lock_guard lock(mutex);
        return guardSaysYes;
    }
};

Json run(ScriptHost& host, const std::string& text) {
    const auto script = host.compile(text);
    if (!script)
        return {{"error", "not understood"}};
    const auto begin = std::chrono::steady_clock::now();
    const auto result = script->execute();
    const std::chrono::duration<double, std::milli> taken =
        std::chrono::steady_clock::now() - begin;
    Json said{{"failed", result.failed}, {"text", nullptr}, {"ms", taken.count()}};
    if (result.text)
        said["text"] = *result.text;
    return said;
}

Json answerTo(const std::string& line, Desktop& desktop, browsers::BrowserScriptHost& host) {
    const auto blank = line.find(' ');
    const auto word = line.substr(0, blank);
    const auto rest = blank == std::string::npos ? std::string() : line.substr(blank + 1);
    if (word == "extension")
        return {{"connected", host.hasExtension(rest)}};
    if (word == "main")
        return run(host, rest);
    if (word == "run") {
        Json said;
        std::thread([&] { said = run(host, rest); }).join();
        return said;
    }
    const std::lock_guard lock(desktop.mutex);
    if (word == "front")
        desktop.front = rest.empty() ? std::nullopt : std::optional(rest);
    else if (word == "guard")
        desktop.guardSaysYes = rest == "yes";
    else if (word == "withhold")
        desktop.withheldWord = rest;
    else if (word == "conceal")
        desktop.concealedWord = rest;
    else
        return {{"error", "unknown command"}};
    return Json::object();
}

browsers::BrowserScriptHostOptions optionsFor(const std::shared_ptr<Desktop>& desktop,
                                              const char* hostProgram) {
    const auto frontmost = [desktop] { return desktop->frontmost(); };
    const auto conceals = [desktop](const std::string& address) {
        return desktop->conceals(address);
    };
    return {.socket = browsers::pageSocketPath(),
            .hostProgram = std::filesystem::canonical(hostProgram),
            .frontmostApplication = frontmost,
            .withholds = [desktop](const std::string&,
                                   const std::string& title) { return desktop->withholds(title); },
            .conceals = conceals,
            .fallback =
                std::make_shared<browsers::AccessiblePages>(browsers::AccessiblePages::Options{
                    .frontmostApplication = frontmost, .guard = desktop, .conceals = conceals})};
}

/// The first answer to a question, or null when the connection ends.
Json answerFrom(int socket, browsers::FrameReader& frames) {
    for (;;) {
        while (const auto frame = frames.next())
            if (auto said = Json::parse(*frame); said.contains("id"))
                return said;
        std::array<char, 64 << 10> bytes;
        pollfd polled{.fd = socket, .events = POLLIN, .revents = 0};
        poll(&polled, 1, -1);
        const ssize_t count = recv(socket, bytes.data(), bytes.size(), 0);
        if (count <= 0)
            return nullptr;
        frames.append({bytes.data(), static_cast<std::size_t>(count)});
    }
}

int relay(const std::filesystem::path& hostProgram) {
    const auto listening = browsers::PageSocket::listen(browsers::pageSocketPath());
    if (!listening)
        return 1;
    FileDescriptor socket;
    while (!socket) {
        pollfd polled{.fd = listening->get(), .events = POLLIN, .revents = 0};
        poll(&polled, 1, -1);
        socket = listening->accept(hostProgram);
    }
    browsers::FrameReader frames(browsers::longestFromBrowser);
    for (std::string line; std::getline(std::cin, line);) {
        if (!writeAll(socket.get(), browsers::framed(line)))
            return 1;
        std::cout << answerFrom(socket.get(), frames).dump() << std::endl;
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    if (argc > 2 && std::string_view(argv[2]) == "--raw")
        return relay(std::filesystem::canonical(argv[1]));
    // Programs show what is inside their windows only while somebody listens, as the application
    // does for titles.
    const atspi::AccessibleWindows listening;
    const auto desktop = std::make_shared<Desktop>();
    const auto host =
        argc > 1 ? browsers::BrowserScriptHost::create(optionsFor(desktop, argv[1])) : nullptr;
    if (!host) {
        std::cerr << "usage: browser-answers HOST_PROGRAM, in a session with a runtime folder\n";
        return 1;
    }
    for (std::string line; std::getline(std::cin, line);)
        std::cout << answerTo(line, *desktop, *host).dump() << std::endl;
}
