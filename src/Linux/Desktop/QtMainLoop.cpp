#include "Linux/Desktop/QtMainLoop.h"

#include <QMetaObject>
#include <QObject>
#include <QPointer>
#include <QTimer>

#include <utility>

namespace mnemora::desktop {
namespace {

/// A timer may be destroyed by its own job, so the toolkit's object goes a turn later, or with the
/// loop that is its parent.
struct QtTimer : Timer {
    QPointer<QTimer> timer;

    ~QtTimer() override {
        if (timer.isNull())
            return;
        timer->stop();
        timer->disconnect();
        timer->deleteLater();
    }
};

// The toolkit runs a late timer once and then falls back into step, however many turns it missed,
// and its clock stands still while the machine sleeps: no burst after a stall or a suspend.
std::unique_ptr<Timer> started(QObject* parent, std::chrono::milliseconds interval, bool once,
                               std::function<void()> job) {
    auto result = std::make_unique<QtTimer>();
    result->timer = std::make_unique<QTimer>(parent).release();
    result->timer->setSingleShot(once);
    result->timer->setTimerType(Qt::PreciseTimer);
    QObject::connect(result->timer.data(), &QTimer::timeout,
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
    return started(receiver_.get(), interval, false, std::move(job));
}

std::unique_ptr<Timer> QtMainLoop::after(std::chrono::milliseconds delay,
                                         std::function<void()> job) {
    return started(receiver_.get(), delay, true, std::move(job));
}

void QtMainLoop::background(std::function<void()> job) {
    pool_.run(std::move(job));
}

bool QtMainLoop::finish(std::chrono::milliseconds patience) {
    return pool_.finish(patience);
}

} // namespace mnemora::desktop
