// The native-messaging host: browsers start it for the extension, with the extension's origin as
// first argument, and speak with it on standard input and output. People start it to put the
// extension into their browsers, or to take it out.

#include "BrowserHost/PageRelay.h"
#include "Linux/Browsers/BrowserIntegration.h"
#include "Linux/Browsers/PageSocket.h"
#include "Linux/Browsers/PeerProcess.h"
#include "Support/CoreFiles.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string_view>
#include <unistd.h>

using namespace mnemora::browsers;

namespace {

constexpr auto usage =
    "usage: mnemora-browser-host --install | --remove | --status\n"
    "  --install  put the extension into every browser of yours; takes effect at its next start\n"
    "  --remove   take it out again\n"
    "  --status   say for each browser what is there\n"
    "Browsers themselves start this program with the origin of the extension.\n";

const char* words(IntegrationState state) {
    switch (state) {
    case IntegrationState::installed:
        return "installed";
    case IntegrationState::needsAdministrator:
        return "needs its store or an administrator";
    case IntegrationState::notInstalled:
        break;
    }
    return "not installed";
}

/// Where <prefix>/libexec/mnemora/mnemora-browser-host, this program, is installed.
std::filesystem::path prefix() {
    return executableOf(getpid()).parent_path().parent_path().parent_path();
}

/// The application of the same installation.
std::filesystem::path application() {
    std::error_code failed;
    return std::filesystem::canonical(prefix() / "bin" / "mnemora", failed);
}

int manage(std::string_view command) {
    const auto integration = BrowserIntegration::open(BrowserIntegration::locations(prefix()));
    if (!integration) {
        std::fputs("mnemora-browser-host: the packed extension is missing\n", stderr);
        return EXIT_FAILURE;
    }
    bool done = true;
    if (command == "--install")
        done = integration->install();
    else if (command == "--remove")
        done = integration->remove();
    for (const auto& browser : integration->report())
        std::printf("%s: %s\n", browser.name.c_str(), words(browser.state));
    return done ? EXIT_SUCCESS : EXIT_FAILURE;
}

int relay() {
    std::signal(SIGPIPE, SIG_IGN); // whoever is gone is seen by the failed write
    PageRelay(STDIN_FILENO, STDOUT_FILENO, pageSocketPath(), application(),
              executableOf(getppid()).string())
        .run();
    return EXIT_SUCCESS;
}

} // namespace

int main(int argc, char** argv) {
    mnemora::coreFiles::forbid(); // pages pass through
    const std::string_view argument = argc > 1 ? argv[1] : "";
    try {
        if (argument.starts_with("chrome-extension://"))
            return relay();
        if (argument == "--install" || argument == "--remove" || argument == "--status")
            return manage(argument);
    } catch (const std::exception& error) { // memory or the file system
        std::fprintf(stderr, "mnemora-browser-host: %s\n", error.what());
        return EXIT_FAILURE;
    }
    std::fputs(usage, stderr);
    return EXIT_FAILURE;
}
