// What one tick of the sampler costs the main thread: the frontmost application and its title,
// with a terminal, a browser and a browser that hangs in front, and while a client holds the X
// server. Prints milliseconds.

#include "desktop/DesktopSession.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace mnemora::desktop;
using namespace std::chrono_literals;
using Steady = std::chrono::steady_clock;

void measure(DesktopSession& session, const char* label, int ticks,
             std::chrono::milliseconds pause) {
    std::vector<double> costs;
    std::string title;
    for (int i = 0; i < ticks; ++i) {
        const auto began = Steady::now();
        title = session.frontTitle().value_or("(none)");
        costs.push_back(std::chrono::duration<double, std::milli>(Steady::now() - began).count());
        std::this_thread::sleep_for(pause);
    }
    std::sort(costs.begin(), costs.end());
    std::printf("%-28s %4d ticks  median %6.2f ms  worst %6.2f ms   \"%s\"\n", label, ticks,
                costs[costs.size() / 2], costs.back(), title.c_str());
    std::fflush(stdout);
}

bool waitFor(DesktopSession& session, const std::string& part) {
    return session.runUntil(
        [&] { return session.frontTitle().value_or("").find(part) != std::string::npos; });
}

} // namespace

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    DesktopSession session;
    if (argc < 3 || !session.workspace)
        return 1;
    const std::string page = argv[1], profile = argv[2];
    Program terminal({"xterm", "-T", "terminal"});
    if (!waitFor(session, "terminal"))
        return 1;
    measure(session, "terminal in front", 300, 20ms);
    const Program browser({"chromium", "--no-sandbox", "--no-first-run", "--disable-gpu",
                           "--user-data-dir=" + profile, page});
    if (!waitFor(session, "Chromium"))
        return 1;
    std::this_thread::sleep_for(3s);
    measure(session, "browser in front", 300, 20ms);
    browser.signal(SIGSTOP);
    measure(session, "browser that hangs in front", 60, 500ms);
    browser.signal(SIGCONT);
    auto* grabber = xcb_connect(nullptr, nullptr);
    xcb_grab_server(grabber);
    xcb_flush(grabber);
    measure(session, "X server held by a client", 50, 20ms);
    xcb_disconnect(grabber);
    return 0;
}
