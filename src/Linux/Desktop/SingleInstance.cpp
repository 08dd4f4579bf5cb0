#include "Linux/Desktop/SingleInstance.h"

#include "Linux/Desktop/BusTypes.h"
#include "Log.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusServiceWatcher>
#include <QEventLoop>
#include <QTimer>

#include <utility>

namespace mnemora::desktop {
namespace {

const auto serviceName = QStringLiteral("app.mnemora.Mnemora");
const auto objectPath = QStringLiteral("/app/mnemora/Mnemora");

QDBusMessage activation() {
    auto call = QDBusMessage::createMethodCall(serviceName, objectPath,
                                               QStringLiteral("org.freedesktop.Application"),
                                               QStringLiteral("Activate"));
    call << QVariantMap();
    call.setAutoStartService(false);
    return call;
}

} // namespace

ApplicationInterface::ApplicationInterface(QObject* object, std::function<void()> activated)
    : QDBusAbstractAdaptor(object), activated_(std::move(activated)) {}

void ApplicationInterface::Activate(const QVariantMap& /*platformData*/) {
    QTimer::singleShot(0, this, activated_); // the caller gets its reply first
}

SingleInstance::SingleInstance(std::function<void()> activated)
    : object_(std::make_unique<QObject>()) {
    // The object's own from here on.
    std::make_unique<ApplicationInterface>(object_.get(), std::move(activated)).release();
}

SingleInstance::~SingleInstance() {
    release();
}

bool SingleInstance::acquire(std::chrono::milliseconds patience) {
    auto bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        logError("no session bus: no status icon there, and a second start can't find this one");
        return true;
    }
    bus.registerObject(objectPath, object_.get(), QDBusConnection::ExportAdaptors);
    // What it asks would wait 25 s for a bus that hangs.
    bus.interface()->setTimeout(static_cast<int>(patience.count()));
    const auto taken = takeName();
    if (!taken)
        logError("the session bus doesn't answer: a second start can't find this one");
    holds_ = taken.value_or(true) || takeOver(patience); // the bus may still give it
    return holds_;
}

std::optional<bool> SingleInstance::takeName() {
    const auto reply = QDBusConnection::sessionBus().interface()->registerService(
        serviceName, QDBusConnectionInterface::DontQueueService,
        QDBusConnectionInterface::DontAllowReplacement);
    if (!reply.isValid())
        return std::nullopt;
    return reply.value() == QDBusConnectionInterface::ServiceRegistered;
}

bool SingleInstance::takeOver(std::chrono::milliseconds patience) {
    QEventLoop loop;
    std::optional<bool> taken;
    const auto settle = [&](bool result) {
        taken = taken.value_or(result);
        loop.quit();
    };
    const auto retry = [&] {
        if (!taken && takeName().value_or(false))
            settle(true);
    };
    const auto bus = QDBusConnection::sessionBus();
    const QDBusServiceWatcher watcher(serviceName, bus,
                                      QDBusServiceWatcher::WatchForUnregistration);
    QObject::connect(&watcher, &QDBusServiceWatcher::serviceUnregistered, &loop, retry);
    // One that is quitting gives the name up before anything else, so its loss is heard of before
    // an answer that it might still give: who answers first stays.
    const QDBusPendingCallWatcher answer(
        bus.asyncCall(activation(), static_cast<int>(patience.count())));
    QObject::connect(&answer, &QDBusPendingCallWatcher::finished, &loop, [&] {
        if (answer.isError())
            retry(); // it may have gone before anybody watched
        else
            settle(false);
    });
    QTimer::singleShot(patience, &loop, &QEventLoop::quit);
    loop.exec();
    if (!taken)
        logError("Mnemora runs already but doesn't answer");
    else if (!*taken)
        logInfo("Mnemora runs already and shows its menu");
    return taken.value_or(false);
}

void SingleInstance::release() {
    if (std::exchange(holds_, false))
        giveNameUp(serviceName);
}

} // namespace mnemora::desktop
