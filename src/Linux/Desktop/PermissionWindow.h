#pragma once
// The window of one settings page.

#include "Linux/Desktop/PermissionPage.h"

#include <QDialog>
#include <QTimer>

#include <functional>
#include <vector>

class QPushButton;
class QVBoxLayout;

namespace mnemora::desktop {

class StatusSymbol;
class TextLabel;

/// Follows what `read` gives, once a second while it is seen and after every click. Main thread.
class PermissionWindow : public QDialog {
  public:
    using Reader = std::function<PermissionPage()>;
    using Actor = std::function<void(PermissionAction)>;

    PermissionWindow(Reader read, Actor act);
    void bringToFront();

  protected:
    bool event(QEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

  private:
    void build();
    void addHead(QVBoxLayout& stack);
    void addFoot(QVBoxLayout& stack);
    void fitHeight();
    void refresh();
    void showPage();
    void showItems();
    void showButtons();
    void press(std::size_t button);

    Reader read_;
    Actor act_;
    PermissionPage page_;
    QTimer poll_;
    // Owned by the layout:
    StatusSymbol* symbol_ = nullptr;
    TextLabel* state_ = nullptr;
    TextLabel* explanation_ = nullptr;
    QWidget* items_ = nullptr;
    TextLabel* notes_ = nullptr;
    std::vector<QPushButton*> buttons_;
    QPushButton* close_ = nullptr;
};

} // namespace mnemora::desktop
