#include "Linux/Desktop/BusTypes.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>

namespace mnemora::desktop {

namespace {

QDBusMessage callOfTheBus(const QString& method, const QString& name) {
    const auto bus = QStringLiteral("org.freedesktop.DBus");
    auto call =
        QDBusMessage::createMethodCall(bus, QStringLiteral("/org/freedesktop/DBus"), bus, method);
    call << name;
    return call;
}

} // namespace

void askForName(const QString& name) {
    auto call = callOfTheBus(QStringLiteral("RequestName"), name);
    call << 0U; // no flags
    QDBusConnection::sessionBus().send(call);
}

void giveNameUp(const QString& name) {
    QDBusConnection::sessionBus().send(callOfTheBus(QStringLiteral("ReleaseName"), name));
}

void registerBusTypes() {
    qDBusRegisterMetaType<NotifierPixmap>();
    qDBusRegisterMetaType<NotifierPixmaps>();
    qDBusRegisterMetaType<NotifierToolTip>();
    qDBusRegisterMetaType<MenuProperties>();
    qDBusRegisterMetaType<MenuPropertiesList>();
    qDBusRegisterMetaType<MenuLayout>();
    qDBusRegisterMetaType<MenuEvent>();
    qDBusRegisterMetaType<MenuEvents>();
    qDBusRegisterMetaType<QList<int>>();
    qDBusRegisterMetaType<QList<QStringList>>(); // a shortcut: aas
}

QDBusArgument& operator<<(QDBusArgument& to, const NotifierPixmap& value) {
    to.beginStructure();
    to << value.width << value.height << value.pixels;
    to.endStructure();
    return to;
}

const QDBusArgument& operator>>(const QDBusArgument& from, NotifierPixmap& value) {
    from.beginStructure();
    from >> value.width >> value.height >> value.pixels;
    from.endStructure();
    return from;
}

QDBusArgument& operator<<(QDBusArgument& to, const NotifierToolTip& value) {
    to.beginStructure();
    to << value.iconName << value.icon << value.title << value.text;
    to.endStructure();
    return to;
}

const QDBusArgument& operator>>(const QDBusArgument& from, NotifierToolTip& value) {
    from.beginStructure();
    from >> value.iconName >> value.icon >> value.title >> value.text;
    from.endStructure();
    return from;
}

QDBusArgument& operator<<(QDBusArgument& to, const MenuProperties& value) {
    to.beginStructure();
    to << value.id << value.properties;
    to.endStructure();
    return to;
}

const QDBusArgument& operator>>(const QDBusArgument& from, MenuProperties& value) {
    from.beginStructure();
    from >> value.id >> value.properties;
    from.endStructure();
    return from;
}

QDBusArgument& operator<<(QDBusArgument& to, const MenuLayout& value) {
    to.beginStructure();
    to << value.id << value.properties;
    to.beginArray(qMetaTypeId<QDBusVariant>());
    for (const auto& child : value.children)
        to << QDBusVariant(QVariant::fromValue(child));
    to.endArray();
    to.endStructure();
    return to;
}

// Layouts are only ever sent; the toolkit wants both directions.
const QDBusArgument& operator>>(const QDBusArgument& from, MenuLayout& value) {
    from.beginStructure();
    from >> value.id >> value.properties;
    from.beginArray();
    while (!from.atEnd()) {
        QDBusVariant child;
        from >> child;
    }
    from.endArray();
    from.endStructure();
    return from;
}

QDBusArgument& operator<<(QDBusArgument& to, const MenuEvent& value) {
    to.beginStructure();
    to << value.id << value.name << value.data << value.timestamp;
    to.endStructure();
    return to;
}

const QDBusArgument& operator>>(const QDBusArgument& from, MenuEvent& value) {
    from.beginStructure();
    from >> value.id >> value.name >> value.data >> value.timestamp;
    from.endStructure();
    return from;
}

} // namespace mnemora::desktop
