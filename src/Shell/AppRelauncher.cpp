#include "Shell/AppRelauncher.h"

#include "Platform/DesktopServices.h"

namespace mnemora {

void AppRelauncher::relaunch() {
    const auto application = desktopServices().application;
    if (!application)
        return;
    const auto bundlePath = application->bundlePath();
    if (!bundlePath.empty())
        (void)application->startDetached("/bin/sh", {"-c", command(bundlePath)});
    application->terminate();
}

std::string AppRelauncher::command(std::string_view bundlePath) {
    // The pause lets this instance give up its name and its store.
    return "sleep 1; exec " + shellQuoted(bundlePath);
}

std::string shellQuoted(std::string_view text) {
    std::string word = "'";
    for (const char character : text.substr(0, text.find('\0'))) {
        if (character == '\'')
            word += "'\\''"; // close, a quote of its own, open again
        else
            word += character;
    }
    return word + "'";
}

} // namespace mnemora
