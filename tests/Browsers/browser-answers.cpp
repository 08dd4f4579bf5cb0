// Runs the script host as the application does, for tests with a real browser. Reads lines on
// standard input and answers each with one line of JSON:
//   front IDENTIFIER     the application in front from now on ("front" alone: none)
//   withhold WORD        titles that hold the word are withheld
//   run SCRIPT           {"failed": ..., "text": ..., "ms": ...}
//   main SCRIPT          the same on the main thread
//   extension IDENTIFIER whether its extension is connected
//   guard yes|no         what guards the window in front says from now on; "no" at the start
#include "Linux/Accessibility/AccessibleWindows.h"
#include "Linux/Browsers/AccessiblePages.h"
#include "Linux/Browsers/BrowserScriptHost.h"
#include "Linux/Browsers/PageSocket.h"

#include <chrono>
#include <iostream>
#include <mutex>
#include <nlohmann/json.hpp>
#include <thread>

using namespace mnemora;
using Json = nlohmann::json;

namespace {

struct Desktop : FrontWindowGuard {
    std::mutex mutex;
    bool guardSaysYes = false;        // guarded by mutex
    std::optional<std::string> front; // guarded by mutex
    std::string withheldWord;         // guarded by mutex

    std::optional<std::string> frontmost() {
        const std::lock_guard lock(mutex);
        return front;
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
    else
        return {{"error", "unknown command"}};
    return Json::object();
}

browsers::BrowserScriptHostOptions optionsFor(const std::shared_ptr<Desktop>& desktop,
                                              const char* hostProgram) {
    const auto frontmost = [desktop] { return desktop->frontmost(); };
    return {.socket = browsers::pageSocketPath(),
            .hostProgram = std::filesystem::canonical(hostProgram),
            .frontmostApplication = frontmost,
            .withholds =
                [desktop](const std::string&, const std::string& title) {
                    const std::lock_guard lock(desktop->mutex);
                    return !desktop->withheldWord.empty() &&
                           title.find(desktop->withheldWord) != std::string::npos;
                },
            .fallback = std::make_shared<browsers::AccessiblePages>(
                browsers::AccessiblePages::Options{frontmost, desktop})};
}

} // namespace

int main(int argc, char** argv) {
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
