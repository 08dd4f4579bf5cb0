#include "Linux/Desktop/QtMainLoop.h"

#include <QMetaObject>
#include <QObject>
#include <QTimer>

#include <utility>

namespace mnemora::desktop {
namespace {

/// A timer may be destroyed by its own job, so the toolkit's object goes a turn later.
struct LaterDeleter {
    void operator()(QTimer* timer) const {
        timer->stop();
        timer->disconnect();
        timer->deleteLater();
    }
};

struct QtTimer : Timer {
    std::unique_ptr<QTimer, LaterDeleter> timer;
};

// The toolkit runs a late timer once and then falls back into step, however many turns it missed,
// and its clock stands still while the machine sleeps: no burst after a stall or a suspend.
std::unique_ptr<Timer> started(std::chrono::milliseconds interval, bool once,
                               std::function<void()> job) {
    auto result = std::make_unique<QtTimer>();
    result->timer.reset(std::make_unique<QTimer>().release());
    result->timer->setSingleShot(once);
    result->timer->setTimerType(Qt::PreciseTimer);
    QObject::connect(result->timer.get(), &QTimer::timeout,
                     [job = std::move(job)] { runGuarded(job); });
    result->timer->start(interval);
    return result;
}

} // namespace

QtMainLoop::QtMainLoop() : receiver_(std::make_unique<QObject>()) {}

QtMainLoop::~QtMainLoop() = default;

void QtMainLoop::post(std::function<void()> job) {
    QMetaObject::invokeMethod(
        receiver_.get(), [job = std::move(job)] { runGuarded(job); }, Qt::QueuedConnection);
}

std::unique_ptr<Timer> QtMainLoop::every(std::chrono::milliseconds interval,
                                         std::function<void()> job) {
    return started(interval, false, std::move(job));
}

std::unique_ptr<Timer> QtMainLoop::after(std::chrono::milliseconds delay,
                                         std::function<void()> job) {
    return started(delay, true, std::move(job));
}

void QtMainLoop::background(std::function<void()> job) {
    pool_.run(std::move(job));
}

bool QtMainLoop::finish(std::chrono::milliseconds patience) {
    return pool_.finish(patience);
}

} // namespace mnemora::desktop
