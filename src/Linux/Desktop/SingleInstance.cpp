#include "Linux/Desktop/SingleInstance.h"

#include "Log.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusServiceWatcher>
#include <QEventLoop>
#include <QTimer>

#include <utility>

namespace mnemora::desktop {
namespace {

using namespace std::chrono_literals;

const auto serviceName = QStringLiteral("app.mnemora.Mnemora");
const auto objectPath = QStringLiteral("/app/mnemora/Mnemora");
constexpr auto patienceWithOther = 1s;

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
    holds_ = takeName() || awaitName(patience);
    if (!holds_)
        activateOther();
    return holds_;
}

bool SingleInstance::takeName() {
    const auto reply = QDBusConnection::sessionBus().interface()->registerService(
        serviceName, QDBusConnectionInterface::DontQueueService,
        QDBusConnectionInterface::DontAllowReplacement);
    return reply.isValid() && reply.value() == QDBusConnectionInterface::ServiceRegistered;
}

bool SingleInstance::awaitName(std::chrono::milliseconds patience) {
    QEventLoop loop;
    bool taken = false;
    const auto retry = [&] {
        taken = taken || takeName();
        if (taken)
            loop.quit();
    };
    QDBusServiceWatcher watcher(serviceName, QDBusConnection::sessionBus(),
                                QDBusServiceWatcher::WatchForUnregistration);
    QObject::connect(&watcher, &QDBusServiceWatcher::serviceUnregistered, &loop, retry);
    QTimer::singleShot(0, &loop, retry); // it may have gone before anybody watched
    QTimer::singleShot(patience, &loop, &QEventLoop::quit);
    loop.exec();
    return taken;
}

void SingleInstance::activateOther() {
    auto call = QDBusMessage::createMethodCall(serviceName, objectPath,
                                               QStringLiteral("org.freedesktop.Application"),
                                               QStringLiteral("Activate"));
    call << QVariantMap();
    call.setAutoStartService(false);
    const auto reply = QDBusConnection::sessionBus().call(
        call, QDBus::Block, static_cast<int>(std::chrono::milliseconds(patienceWithOther).count()));
    if (reply.type() == QDBusMessage::ReplyMessage)
        logInfo("Mnemora runs already and shows its menu");
    else
        logError("Mnemora runs already but doesn't answer");
}

void SingleInstance::release() {
    if (std::exchange(holds_, false))
        QDBusConnection::sessionBus().interface()->unregisterService(serviceName);
}

} // namespace mnemora::desktop
