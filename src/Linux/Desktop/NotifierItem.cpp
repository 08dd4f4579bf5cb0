#include "Linux/Desktop/NotifierItem.h"

#include "Linux/Desktop/BusMenu.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QImage>
#include <QPixmap>
#include <QtEndian>

#include <utility>

namespace mnemora::desktop {
namespace {

const auto watcherService = QStringLiteral("org.kde.StatusNotifierWatcher");
const auto watcherPath = QStringLiteral("/StatusNotifierWatcher");
const auto itemPath = QStringLiteral("/StatusNotifierItem");
const auto menuPath = QStringLiteral("/StatusNotifierItem/Menu");

// What panels use, at scales from 1 to 3.
constexpr int iconSizes[] = {16, 18, 22, 24, 32, 36, 44, 48, 64, 66};

NotifierPixmap pixmapOf(const QIcon& icon, int size) {
    auto image = icon.pixmap(QSize(size, size), 1.0).toImage();
    image = image.convertToFormat(QImage::Format_ARGB32);
    NotifierPixmap result{.width = image.width(), .height = image.height(), .pixels = {}};
    result.pixels.reserve(image.width() * image.height() * 4);
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) {
            const quint32 pixel = qToBigEndian(image.pixel(x, y));
            result.pixels.append(reinterpret_cast<const char*>(&pixel), sizeof pixel);
        }
    return result;
}

/// Calls the watcher and hands the answer on, the error replies among it.
void callWatcher(QObject* owner, const QDBusMessage& call,
                 const std::function<void(const QDBusMessage&)>& answered) {
    auto* pending = std::make_unique<QDBusPendingCallWatcher>(
                        QDBusConnection::sessionBus().asyncCall(call), owner)
                        .release(); // its owner's, or its own once it has finished
    QObject::connect(pending, &QDBusPendingCallWatcher::finished, owner, [pending, answered] {
        pending->deleteLater();
        answered(pending->reply());
    });
}

} // namespace

NotifierInterface::NotifierInterface(QObject* object, QString title, std::function<void()> activate)
    : QDBusAbstractAdaptor(object), title_(std::move(title)), activate_(std::move(activate)) {
    registerBusTypes();
}

void NotifierInterface::setIcon(const QIcon& icon) {
    icon_.clear();
    for (const int size : iconSizes)
        icon_.append(pixmapOf(icon, size));
    Q_EMIT NewIcon();
}

NotifierToolTip NotifierInterface::toolTip() const {
    return {.iconName = {}, .icon = {}, .title = title_, .text = {}};
}

QDBusObjectPath NotifierInterface::menu() {
    return QDBusObjectPath(menuPath);
}

void NotifierInterface::Activate(int /*x*/, int /*y*/) {
    activate_();
}

void NotifierInterface::SecondaryActivate(int /*x*/, int /*y*/) {
    activate_();
}

void NotifierInterface::ContextMenu(int /*x*/, int /*y*/) {
    activate_();
}

void NotifierInterface::Scroll(int /*delta*/, const QString& /*orientation*/) {}

NotifierItem::NotifierItem(const StatusItemContent& content, std::function<void()> activate)
    : service_(QStringLiteral("org.kde.StatusNotifierItem-%1-1")
                   .arg(QCoreApplication::applicationPid())) {
    const auto title = QString::fromStdString(content.toolTip);
    interface_ = std::make_unique<NotifierInterface>(this, title, std::move(activate)).release();
    auto bus = QDBusConnection::sessionBus();
    auto* menuObject = std::make_unique<QObject>(this).release();
    std::make_unique<BusMenu>(menuObject, content.menuNeedsUpdate).release(); // menuObject's
    bus.registerObject(itemPath, this, QDBusConnection::ExportAdaptors);
    bus.registerObject(menuPath, menuObject, QDBusConnection::ExportAdaptors);
    for (const auto* signal : {"StatusNotifierHostRegistered", "StatusNotifierHostUnregistered"})
        bus.connect(watcherService, watcherPath, watcherService, QLatin1String(signal), this,
                    SLOT(hostsChanged()));
    watcher_ = std::make_unique<QDBusServiceWatcher>(watcherService, bus,
                                                     QDBusServiceWatcher::WatchForOwnerChange);
    connect(watcher_.get(), &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString&, const QString&, const QString& owner) {
                owner.isEmpty() ? say(false) : registerItem();
            });
    registerItem();
}

NotifierItem::~NotifierItem() {
    auto bus = QDBusConnection::sessionBus();
    bus.unregisterObject(menuPath);
    bus.unregisterObject(itemPath);
    giveNameUp(service_);
}

void NotifierItem::setIcon(const QIcon& icon) {
    interface_->setIcon(icon);
}

void NotifierItem::registerItem() {
    askForName(service_);
    auto call = QDBusMessage::createMethodCall(watcherService, watcherPath, watcherService,
                                               QStringLiteral("RegisterStatusNotifierItem"));
    call.setAutoStartService(false);
    call << service_;
    callWatcher(this, call, [this](const QDBusMessage& reply) {
        if (reply.type() == QDBusMessage::ReplyMessage)
            askForHost();
        else
            say(false);
    });
}

void NotifierItem::hostsChanged() {
    askForHost();
}

// However often hosts come and go, one question is open, and one more follows it.
void NotifierItem::askForHost() {
    if (std::exchange(isAsking_, true)) {
        asksAgain_ = true;
        return;
    }
    asksAgain_ = false;
    auto call = QDBusMessage::createMethodCall(watcherService, watcherPath,
                                               QStringLiteral("org.freedesktop.DBus.Properties"),
                                               QStringLiteral("Get"));
    call.setAutoStartService(false);
    call << watcherService << QStringLiteral("IsStatusNotifierHostRegistered");
    callWatcher(this, call, [this](const QDBusMessage& reply) {
        const QDBusPendingReply<QDBusVariant> answer(reply);
        isAsking_ = false;
        if (asksAgain_)
            askForHost();
        say(answer.isValid() && answer.value().variant().toBool());
    });
}

void NotifierItem::say(bool is) {
    if (std::exchange(lastSaid_, is ? 1 : 0) != (is ? 1 : 0))
        Q_EMIT shown(is);
}

} // namespace mnemora::desktop
