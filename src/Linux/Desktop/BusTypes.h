#pragma once
// The structures that status items and their menus exchange on the message bus.
// (https://www.freedesktop.org/wiki/Specifications/StatusNotifierItem/ and libdbusmenu's
// dbus-menu.xml)

#include <QByteArray>
#include <QDBusArgument>
#include <QDBusVariant>
#include <QList>
#include <QMetaType>
#include <QString>
#include <QVariantMap>

namespace mnemora::desktop {

/// A picture, rows of ARGB32 in network byte order: (iiay).
struct NotifierPixmap {
    int width = 0;
    int height = 0;
    QByteArray pixels;
};
using NotifierPixmaps = QList<NotifierPixmap>;

/// (sa(iiay)ss)
struct NotifierToolTip {
    QString iconName;
    NotifierPixmaps icon;
    QString title;
    QString text;
};

/// An item's properties: (ia{sv}).
struct MenuProperties {
    int id = 0;
    QVariantMap properties;
};
using MenuPropertiesList = QList<MenuProperties>;

/// An item with those below it: (ia{sv}av).
struct MenuLayout {
    int id = 0;
    QVariantMap properties;
    QList<MenuLayout> children;
};

/// What happened to an item: (isvu).
struct MenuEvent {
    int id = 0;
    QString name;
    QDBusVariant data;
    uint timestamp = 0;
};
using MenuEvents = QList<MenuEvent>;

/// Asks for a name on the session's bus, or gives it up, without waiting for the bus, which may
/// hang: what the toolkit itself offers waits 25 s for the answer. What is sent afterwards, the bus
/// deals with afterwards.
void askForName(const QString& name);
void giveNameUp(const QString& name);

/// Makes the types known to the toolkit; more than once does no harm.
void registerBusTypes();

QDBusArgument& operator<<(QDBusArgument& to, const NotifierPixmap& value);
const QDBusArgument& operator>>(const QDBusArgument& from, NotifierPixmap& value);
QDBusArgument& operator<<(QDBusArgument& to, const NotifierToolTip& value);
const QDBusArgument& operator>>(const QDBusArgument& from, NotifierToolTip& value);
QDBusArgument& operator<<(QDBusArgument& to, const MenuProperties& value);
const QDBusArgument& operator>>(const QDBusArgument& from, MenuProperties& value);
QDBusArgument& operator<<(QDBusArgument& to, const MenuLayout& value);
const QDBusArgument& operator>>(const QDBusArgument& from, MenuLayout& value);
QDBusArgument& operator<<(QDBusArgument& to, const MenuEvent& value);
const QDBusArgument& operator>>(const QDBusArgument& from, MenuEvent& value);

} // namespace mnemora::desktop

Q_DECLARE_METATYPE(mnemora::desktop::NotifierPixmap)
Q_DECLARE_METATYPE(mnemora::desktop::NotifierToolTip)
Q_DECLARE_METATYPE(mnemora::desktop::MenuProperties)
Q_DECLARE_METATYPE(mnemora::desktop::MenuLayout)
Q_DECLARE_METATYPE(mnemora::desktop::MenuEvent)
