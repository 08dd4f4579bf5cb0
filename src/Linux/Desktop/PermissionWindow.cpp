#include "Linux/Desktop/PermissionWindow.h"

#include "Linux/Desktop/SetupWidgets.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QVBoxLayout>

#include <chrono>
#include <memory>
#include <utility>

namespace mnemora::desktop {
namespace {

using namespace std::chrono_literals;

constexpr int windowWidth = 460;
constexpr auto pollInterval = 1000ms;
/// The accessibility bus needs a moment before it shows what a click has done.
constexpr auto afterClick = 150ms;

std::unique_ptr<QWidget> itemView(const PermissionPage::Item& item) {
    auto frame = std::make_unique<RowFrame>();
    auto texts = std::make_unique<QVBoxLayout>();
    texts->setSpacing(2);
    texts->addWidget(
        std::make_unique<TextLabel>(item.name, brandFont(13, QFont::DemiBold)).release());
    auto detail =
        std::make_unique<TextLabel>(item.detail, brandFont(11), TextLabel::Tone::secondary);
    detail->setTextInteractionFlags(Qt::TextSelectableByMouse); // paths are there to be copied
    texts->addWidget(detail.release());
    auto row = std::make_unique<QHBoxLayout>();
    row->setContentsMargins(12, 10, 12, 10);
    row->setSpacing(12);
    row->addWidget(std::make_unique<StatusSymbol>(item.isDone).release(), 0, Qt::AlignVCenter);
    row->addLayout(texts.release(), 1);
    frame->setLayout(row.release());
    return frame;
}

std::string paragraphs(const std::vector<std::string>& notes) {
    std::string text;
    for (const auto& note : notes)
        text += (text.empty() ? "" : "\n\n") + note;
    return text;
}

} // namespace

PermissionWindow::PermissionWindow(Reader read, Actor act)
    : read_(std::move(read)), act_(std::move(act)), page_(read_()) {
    setWindowFlags(Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                   Qt::WindowSystemMenuHint | Qt::WindowCloseButtonHint);
    setFocusPolicy(Qt::ClickFocus); // no ring is drawn before the keyboard is used
    setFocus();
    build();
    showPage();
    QObject::connect(&poll_, &QTimer::timeout, this, [this] { refresh(); });
}

void PermissionWindow::bringToFront() {
    showNormal();
    raise();
    activateWindow();
}

bool PermissionWindow::event(QEvent* event) {
    const bool handled = QDialog::event(event);
    if (event->type() == QEvent::LayoutRequest) // a text has become shorter or longer
        fitHeight();
    return handled;
}

void PermissionWindow::fitHeight() {
    layout()->activate();
    setFixedHeight(layout()->heightForWidth(windowWidth));
}

void PermissionWindow::showEvent(QShowEvent* event) {
    refresh();
    poll_.start(pollInterval);
    QDialog::showEvent(event);
}

void PermissionWindow::hideEvent(QHideEvent* event) {
    poll_.stop();
    QDialog::hideEvent(event);
}

void PermissionWindow::build() {
    auto stack = std::make_unique<QVBoxLayout>();
    stack->setContentsMargins(26, 24, 26, 24);
    stack->setSpacing(16);
    addHead(*stack);
    items_ = std::make_unique<QWidget>().release();
    stack->addWidget(items_);
    notes_ = std::make_unique<TextLabel>("", brandFont(11), TextLabel::Tone::secondary).release();
    stack->addWidget(notes_);
    addFoot(*stack);
    setLayout(stack.release());
    setFixedWidth(windowWidth);
}

void PermissionWindow::addHead(QVBoxLayout& stack) {
    auto head = std::make_unique<QHBoxLayout>();
    head->setSpacing(12);
    symbol_ = std::make_unique<StatusSymbol>(page_.isGranted).release();
    state_ = std::make_unique<TextLabel>("", brandFont(14, QFont::DemiBold)).release();
    head->addWidget(symbol_, 0, Qt::AlignVCenter);
    head->addWidget(state_, 1);
    stack.addLayout(head.release());
    explanation_ = std::make_unique<TextLabel>("", brandFont(13)).release();
    stack.addWidget(explanation_);
}

void PermissionWindow::addFoot(QVBoxLayout& stack) {
    auto row = std::make_unique<QHBoxLayout>();
    row->setSpacing(10);
    for (std::size_t i = 0; i < 2; ++i) {
        buttons_.push_back(largeButton("", false));
        QObject::connect(buttons_.back(), &QPushButton::clicked, this, [this, i] { press(i); });
        row->addWidget(buttons_.back(), 1);
    }
    close_ = largeButton("Close", true);
    QObject::connect(close_, &QPushButton::clicked, this, [this] { close(); });
    row->addWidget(close_, 1);
    stack.addLayout(row.release());
}

void PermissionWindow::refresh() {
    auto page = read_();
    if (page == page_)
        return;
    page_ = std::move(page);
    showPage();
}

void PermissionWindow::showPage() {
    setWindowTitle(toolkitText(page_.title));
    symbol_->setGranted(page_.isGranted);
    state_->setText(page_.state);
    explanation_->setText(page_.explanation);
    notes_->setText(paragraphs(page_.notes));
    notes_->setVisible(!page_.notes.empty());
    showItems();
    showButtons();
    fitHeight();
}

void PermissionWindow::showItems() {
    auto items = std::make_unique<QWidget>();
    auto rows = std::make_unique<QVBoxLayout>();
    rows->setContentsMargins(0, 0, 0, 0);
    rows->setSpacing(8);
    for (const auto& item : page_.items)
        rows->addWidget(itemView(item).release());
    items->setLayout(rows.release());
    items->setVisible(!page_.items.empty());
    const std::unique_ptr<QLayoutItem> former(layout()->replaceWidget(items_, items.get()));
    const std::unique_ptr<QWidget> formerItems(std::exchange(items_, items.release()));
}

void PermissionWindow::showButtons() {
    bool hasMain = false;
    for (std::size_t i = 0; i < buttons_.size(); ++i) {
        const bool isUsed = i < page_.buttons.size();
        if (isUsed)
            buttons_[i]->setText(toolkitText(page_.buttons[i].label));
        buttons_[i]->setVisible(isUsed);
        const bool isMain = isUsed && page_.buttons[i].isMain;
        setTinted(*buttons_[i], isMain);
        hasMain = hasMain || isMain;
    }
    setTinted(*close_, !hasMain);
}

void PermissionWindow::press(std::size_t button) {
    if (button >= page_.buttons.size())
        return;
    act_(page_.buttons[button].action);
    refresh();
    QTimer::singleShot(afterClick, this, [this] { refresh(); });
}

} // namespace mnemora::desktop
