#include "Linux/Desktop/MenuWindow.h"

#include "Linux/Desktop/MenuTexts.h"

#include <QCursor>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QShortcut>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>

namespace mnemora::desktop {
namespace {

/// A widget of the layout's window, which owns it.
template <class Widget, class... Arguments>
Widget* added(QVBoxLayout& layout, Arguments&&... arguments) {
    auto* widget = std::make_unique<Widget>(std::forward<Arguments>(arguments)...).release();
    layout.addWidget(widget);
    return widget;
}

/// A thin line. The toolkit's own would be read out as a frame without a name.
class Separator : public QWidget {
  public:
    Separator() {
        setFixedHeight(1);
        setAutoFillBackground(true);
        setBackgroundRole(QPalette::Mid);
    }
};

QKeySequence keysOf(const MenuItem& item) {
    return QKeySequence(Qt::CTRL |
                        static_cast<Qt::Key>(QChar(u'A' + (item.keyEquivalent - 'a')).unicode()));
}

} // namespace

MenuWindow::MenuWindow()
    : QWidget(nullptr, Qt::Dialog | Qt::WindowStaysOnTopHint | Qt::CustomizeWindowHint |
                           Qt::WindowTitleHint | Qt::WindowCloseButtonHint) {
    setWindowTitle(QStringLiteral("Mnemora"));
    setAttribute(Qt::WA_QuitOnClose, false);
    setFocusPolicy(Qt::ClickFocus); // as a menu opens: nothing is chosen yet
}

void MenuWindow::open(const Menu& menu) {
    fill(menu);
    adjustSize();
    moveToPointer();
    show();
    setFocus();
    raise();
    activateWindow();
}

void MenuWindow::fill(const Menu& menu) {
    qDeleteAll(findChildren<QWidget*>(Qt::FindDirectChildrenOnly));
    qDeleteAll(findChildren<QShortcut*>(Qt::FindDirectChildrenOnly));
    delete layout();
    auto* column = std::make_unique<QVBoxLayout>(this).release(); // the window's
    column->setSpacing(4);
    for (const auto& item : menu) {
        if (item.isSeparator) {
            added<Separator>(*column);
        } else if (!item.isEnabled()) {
            auto* label = added<QLabel>(*column, shownTitle(item.title));
            label->setTextFormat(Qt::PlainText);
        } else {
            auto* button = added<QPushButton>(*column, toolkitTitle(item.title));
            button->setAutoDefault(true); // Return chooses what the arrows and Tab reach
            const auto chosen = [this, action = item.action] {
                hide();
                QTimer::singleShot(0, qApp, action); // which may open this very window again
            };
            connect(button, &QPushButton::clicked, this, chosen);
            if (item.keyEquivalent != 0)
                connect(std::make_unique<QShortcut>(keysOf(item), this).release(),
                        &QShortcut::activated, this, chosen);
        }
    }
}

void MenuWindow::moveToPointer() {
    const auto pointer = QCursor::pos();
    const auto* screen = QGuiApplication::screenAt(pointer);
    if (screen == nullptr)
        screen = QGuiApplication::primaryScreen();
    if (screen == nullptr)
        return;
    const auto area = screen->availableGeometry();
    move(std::max(area.left(), std::min(pointer.x(), area.right() - width())),
         std::max(area.top(), std::min(pointer.y(), area.bottom() - height())));
}

void MenuWindow::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Escape)
        hide();
    else if (event->key() == Qt::Key_Down)
        focusNextChild();
    else if (event->key() == Qt::Key_Up)
        focusPreviousChild();
    else
        QWidget::keyPressEvent(event);
}

void MenuWindow::changeEvent(QEvent* event) {
    if (event->type() == QEvent::ActivationChange && isVisible() && !isActiveWindow())
        hide();
    QWidget::changeEvent(event);
}

} // namespace mnemora::desktop
