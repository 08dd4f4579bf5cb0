#pragma once
// A menu on the message bus, as com.canonical.dbusmenu has it. The toolkit's own export answers
// "nothing changed" when a menu is rebuilt while it opens, so that panels show the former one.

#include "Linux/Desktop/BusTypes.h"
#include "Platform/StatusItem.h"

#include <QDBusAbstractAdaptor>
#include <QStringList>

#include <chrono>
#include <functional>

namespace mnemora::desktop {

/// The interface's methods by their names on the bus, on the object that it is made for. The menu
/// is made anew when a panel says that it opens; items keep their numbers only while nothing
/// changed, so a click on an outdated menu does nothing. Main thread.
class BusMenu : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.canonical.dbusmenu")
    Q_PROPERTY(uint Version READ version CONSTANT)
    Q_PROPERTY(QString TextDirection READ textDirection CONSTANT)
    Q_PROPERTY(QString Status READ status CONSTANT)
    Q_PROPERTY(QStringList IconThemePath READ iconThemePath CONSTANT)

  public:
    BusMenu(QObject* object, std::function<Menu()> menuNeedsUpdate);

    [[nodiscard]] static uint version() { return 3; }
    [[nodiscard]] static QString textDirection();
    [[nodiscard]] static QString status() { return QStringLiteral("normal"); }
    [[nodiscard]] static QStringList iconThemePath() { return {}; }

  public Q_SLOTS:
    uint GetLayout(int parentId, int recursionDepth, const QStringList& propertyNames,
                   mnemora::desktop::MenuLayout& layout);
    mnemora::desktop::MenuPropertiesList GetGroupProperties(const QList<int>& ids,
                                                            const QStringList& propertyNames);
    QDBusVariant GetProperty(int id, const QString& name);
    void Event(int id, const QString& eventId, const QDBusVariant& data, uint timestamp);
    QList<int> EventGroup(const mnemora::desktop::MenuEvents& events);
    bool AboutToShow(int id);
    QList<int> AboutToShowGroup(const QList<int>& ids, QList<int>& idErrors);

  Q_SIGNALS:
    void ItemsPropertiesUpdated(const mnemora::desktop::MenuPropertiesList& updated,
                                const mnemora::desktop::MenuPropertiesList& removed);
    void LayoutUpdated(uint revision, int parent);
    void ItemActivationRequested(int id, uint timestamp);

  private:
    /// Makes the menu anew; true when it differs from the former one.
    bool rebuild();
    void ensureBuilt();
    [[nodiscard]] const MenuItem* item(int id) const;
    [[nodiscard]] QVariantMap properties(int id, const QStringList& names) const;

    std::function<Menu()> menuNeedsUpdate_;
    Menu menu_;
    int firstId_ = 1; // of the first item; 0 is the menu itself
    uint revision_ = 0;
    std::chrono::steady_clock::time_point builtAt_;
};

} // namespace mnemora::desktop
