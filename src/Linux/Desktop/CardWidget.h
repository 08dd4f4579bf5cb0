#pragma once
// The window of one card.

#include "Platform/Panel.h"

#include <QPixmap>
#include <QPropertyAnimation>
#include <QWidget>

#include <chrono>

class QBoxLayout;
class QScreen;

namespace mnemora::desktop {

/// Lies above other windows, takes no focus, and shows what its card says. Made without an owner:
/// retire() ends it. Main thread.
class CardWidget : public QWidget {
  public:
    CardWidget(Card card, const QPixmap& mark);

    /// Puts it into its corner of the main screen, where it stays when that changes, and on top.
    void appear();
    /// Takes it away, fading as the card says, and deletes it. No callback follows.
    void retire();

  protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;

  private:
    void addTopRow(QBoxLayout& column, const QPixmap& mark);
    void addButtons(QBoxLayout& column);
    void place();
    void follow(QScreen* screen);
    void fadeTo(double opacity, std::chrono::milliseconds duration);
    void call(const std::function<void()>& callback);

    const Card card_;
    QMetaObject::Connection screenChanges_;
    QPropertyAnimation fade_{this, "windowOpacity"};
    bool retired_ = false;
};

} // namespace mnemora::desktop
