#pragma once
// The icon in a status area on the message bus.
// (https://www.freedesktop.org/wiki/Specifications/StatusNotifierItem/)

#include "Linux/Desktop/BusTypes.h"
#include "Platform/StatusItem.h"

#include <QDBusAbstractAdaptor>
#include <QDBusObjectPath>
#include <QIcon>
#include <QObject>

#include <functional>
#include <memory>

class QDBusServiceWatcher;

namespace mnemora::desktop {

/// What the item's interface answers; its methods by their names on the bus.
class NotifierInterface : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierItem")
    Q_PROPERTY(QString Category READ category CONSTANT)
    Q_PROPERTY(QString Id READ id CONSTANT)
    Q_PROPERTY(QString Title READ title CONSTANT)
    Q_PROPERTY(QString Status READ status CONSTANT)
    Q_PROPERTY(int WindowId READ windowId CONSTANT)
    Q_PROPERTY(QString IconName READ iconName CONSTANT)
    Q_PROPERTY(mnemora::desktop::NotifierPixmaps IconPixmap READ iconPixmap NOTIFY NewIcon)
    Q_PROPERTY(mnemora::desktop::NotifierToolTip ToolTip READ toolTip CONSTANT)
    Q_PROPERTY(bool ItemIsMenu READ itemIsMenu CONSTANT)
    Q_PROPERTY(QDBusObjectPath Menu READ menu CONSTANT)

  public:
    /// `activate` opens the menu, for panels that leave that to the item.
    NotifierInterface(QObject* object, QString title, std::function<void()> activate);
    void setIcon(const QIcon& icon);

    [[nodiscard]] static QString category() { return QStringLiteral("ApplicationStatus"); }
    [[nodiscard]] static QString id() { return QStringLiteral("app.mnemora.Mnemora"); }
    [[nodiscard]] QString title() const { return title_; }
    [[nodiscard]] static QString status() { return QStringLiteral("Active"); }
    [[nodiscard]] static int windowId() { return 0; }
    [[nodiscard]] static QString iconName() { return {}; }
    [[nodiscard]] NotifierPixmaps iconPixmap() const { return icon_; }
    [[nodiscard]] NotifierToolTip toolTip() const;
    [[nodiscard]] static bool itemIsMenu() { return true; }
    [[nodiscard]] static QDBusObjectPath menu();

  public Q_SLOTS:
    void Activate(int x, int y);
    void SecondaryActivate(int x, int y);
    void ContextMenu(int x, int y);
    void Scroll(int delta, const QString& orientation);

  Q_SIGNALS:
    void NewIcon();

  private:
    QString title_;
    std::function<void()> activate_;
    NotifierPixmaps icon_;
};

/// Registers with the session's watcher whenever there is one, also one that starts later. Main
/// thread; never waits for the bus.
class NotifierItem : public QObject {
    Q_OBJECT

  public:
    NotifierItem(const StatusItemContent& content, std::function<void()> activate);
    ~NotifierItem() override;
    NotifierItem(const NotifierItem&) = delete;
    NotifierItem& operator=(const NotifierItem&) = delete;

    void setIcon(const QIcon& icon);

  Q_SIGNALS:
    /// Whether somebody shows the item now; said once soon after construction, then at changes.
    void shown(bool is);

  private Q_SLOTS:
    void hostsChanged();

  private:
    void registerItem();
    void askForHost();
    void say(bool is);

    QString service_;
    NotifierInterface* interface_ = nullptr; // a child of this object
    std::unique_ptr<QDBusServiceWatcher> watcher_;
    int lastSaid_ = -1; // -1: nothing yet
    bool isAsking_ = false;
    bool asksAgain_ = false; // somebody came or went since
};

} // namespace mnemora::desktop
