#pragma once
// A menu as a small window of its own, for when there is no icon to hang it on.

#include "Platform/StatusItem.h"

#include <QWidget>

namespace mnemora::desktop {

/// Shows the items below each other, the commands as buttons. Closed by Escape, by choosing
/// something and by turning to another window. Main thread.
class MenuWindow : public QWidget {
    Q_OBJECT

  public:
    MenuWindow();

    /// Shows this menu near the pointer, in place of the one that may be shown.
    void open(const Menu& menu);

  protected:
    void keyPressEvent(QKeyEvent* event) override;
    void changeEvent(QEvent* event) override;

  private:
    void fill(const Menu& menu);
    void moveToPointer();
};

} // namespace mnemora::desktop
