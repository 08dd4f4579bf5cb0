#include "Linux/Desktop/DesktopStatusArea.h"

#include "Linux/Desktop/MenuTexts.h"
#include "Linux/Desktop/MenuWindow.h"
#include "Linux/Desktop/NotifierItem.h"
#include "Linux/Desktop/StatusIcon.h"
#include "Log.h"

#include <QApplication>
#include <QCursor>
#include <QEvent>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QMenu>
#include <QPalette>
#include <QSystemTrayIcon>

#include <utility>

namespace mnemora::desktop {
namespace {

/// With the colour of plain lines between that of commands and the toolkit's for what can't be
/// used: these lines are there to be read, at a contrast of at least 4.5 to 1.
QPalette legible(QPalette palette) {
    QColor color = palette.color(QPalette::Active, QPalette::Text);
    color.setAlphaF(0.68F);
    for (const auto role : {QPalette::Text, QPalette::WindowText, QPalette::ButtonText})
        palette.setColor(QPalette::Disabled, role, color);
    return palette;
}

QKeySequence keysOf(char letter) {
    return QKeySequence(QStringLiteral("Ctrl+") + QChar::fromLatin1(letter).toUpper());
}

/// An icon in the older tray. The toolkit's class could speak to the bus as well, but decides at
/// its first use for the rest of the process, and answers a panel that opens the menu with the
/// former one; it is made only while no panel listens on the bus.
class TrayIcon : public QObject {
  public:
    explicit TrayIcon(const StatusItemContent& content)
        : menuNeedsUpdate_(content.menuNeedsUpdate) {
        icon_.setToolTip(QString::fromStdString(content.toolTip));
        icon_.setContextMenu(&menu_);
        menu_.installEventFilter(this);
        connect(&menu_, &QMenu::aboutToShow, this, [this] { fill(); });
        connect(&icon_, &QSystemTrayIcon::activated, this,
                [this](QSystemTrayIcon::ActivationReason reason) {
                    // A click soon after another one comes as a double click. The context menu is
                    // opened by the toolkit.
                    if (reason != QSystemTrayIcon::Context)
                        menu_.popup(QCursor::pos());
                });
        fill(); // the toolkit opens no empty menu
    }
    void show(const QIcon& icon) {
        icon_.setIcon(icon);
        icon_.show();
    }

  protected:
    /// No window of the program has the keyboard while this menu is open, so that shortcuts alone
    /// would not be heard.
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() != QEvent::KeyPress)
            return QObject::eventFilter(watched, event);
        const auto pressed = static_cast<QKeyEvent*>(event)->keyCombination();
        for (auto* action : menu_.actions())
            if (!action->shortcut().isEmpty() && action->shortcut() == QKeySequence(pressed)) {
                menu_.close();
                action->trigger();
                return true;
            }
        return QObject::eventFilter(watched, event);
    }

  private:
    void fill() {
        menu_.clear();
        menu_.setPalette(legible(QApplication::palette("QMenu")));
        for (const auto& item : menuNeedsUpdate_()) {
            if (item.isSeparator) {
                menu_.addSeparator();
                continue;
            }
            auto* action = menu_.addAction(toolkitTitle(item.title));
            action->setEnabled(item.isEnabled());
            if (item.keyEquivalent != 0)
                action->setShortcut(keysOf(item.keyEquivalent));
            if (item.isEnabled())
                connect(action, &QAction::triggered, this, item.action, Qt::QueuedConnection);
        }
    }

    std::function<Menu()> menuNeedsUpdate_;
    QMenu menu_;
    QSystemTrayIcon icon_;
};

class DesktopStatusItem : public QObject, public StatusItem {
  public:
    explicit DesktopStatusItem(StatusItemContent content)
        : content_(std::move(content)), notifier_(content_, [this] { showMenu(); }) {
        window_.installEventFilter(this);
        QObject::connect(&notifier_, &NotifierItem::shown, &notifier_,
                         [this](bool is) { is ? useBus() : useTray(); });
        draw();
    }
    void setRecording(bool recording) override {
        recording_ = recording;
        draw();
    }
    void showMenu() override { window_.open(content_.menuNeedsUpdate()); }

  protected:
    /// The user turned from a light to a dark desktop or back: every widget is told.
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::ApplicationPaletteChange)
            draw();
        return QObject::eventFilter(watched, event);
    }

  private:
    void draw() {
        const auto icon = statusIcon(content_.iconSize, recording_);
        notifier_.setIcon(icon);
        if (tray_)
            tray_->show(icon);
    }
    void useBus() { tray_.reset(); }
    void useTray() {
        tray_ = std::make_unique<TrayIcon>(content_);
        tray_->show(statusIcon(content_.iconSize, recording_));
        if (!std::exchange(saidHow_, true) && !QSystemTrayIcon::isSystemTrayAvailable())
            logInfo("no status area here: start Mnemora once more to open its menu");
    }

    StatusItemContent content_;
    bool recording_ = false;
    bool saidHow_ = false;
    MenuWindow window_;
    std::unique_ptr<TrayIcon> tray_; // while no panel listens on the bus
    NotifierItem notifier_;
};

} // namespace

std::unique_ptr<StatusItem> DesktopStatusArea::add(StatusItemContent content) {
    return std::make_unique<DesktopStatusItem>(std::move(content));
}

} // namespace mnemora::desktop
