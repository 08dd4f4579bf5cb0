#include "Linux/Desktop/TerminationSignals.h"

#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace mnemora::desktop {
namespace {

constexpr int endings[] = {SIGTERM, SIGINT, SIGHUP};

// A pipe and not a signalfd: threads that run already would still take the signal themselves.
// The ends stay open for the life of the process, since a handler may be on its way to them.
int pipeEnds[2] = {-1, -1};

void handle(int) {
    const int before = errno;
    const char byte = 0;
    [[maybe_unused]] const ssize_t written = write(pipeEnds[1], &byte, 1);
    errno = before;
}

void setDisposition(void (*handler)(int)) {
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    for (const int number : endings)
        sigaction(number, &action, nullptr);
}

} // namespace

TerminationSignals::TerminationSignals(std::function<void()> quit) {
    if (pipeEnds[0] < 0 && pipe2(pipeEnds, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    notifier_ = std::make_unique<QSocketNotifier>(pipeEnds[0], QSocketNotifier::Read);
    QObject::connect(notifier_.get(), &QSocketNotifier::activated, [quit = std::move(quit)] {
        char bytes[16];
        while (read(pipeEnds[0], bytes, sizeof bytes) > 0) {
        }
        quit();
    });
    setDisposition(handle);
}

TerminationSignals::~TerminationSignals() {
    if (notifier_)
        setDisposition(SIG_DFL);
}

} // namespace mnemora::desktop
