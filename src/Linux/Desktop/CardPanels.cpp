#include "Linux/Desktop/CardPanels.h"

#include "Linux/Desktop/CardWidget.h"

#include <QGuiApplication>
#include <QPointer>
#include <QScreen>
#include <utility>

namespace mnemora::desktop {
namespace {

struct ShownCard : Panel {
    explicit ShownCard(CardWidget* shown) : widget(shown) {}
    ShownCard(const ShownCard&) = delete;
    ShownCard& operator=(const ShownCard&) = delete;
    ~ShownCard() override {
        if (widget)
            widget->retire();
    }
    QPointer<CardWidget> widget;
};

} // namespace

CardPanels::CardPanels(MarkPainter mark) : mark_(std::move(mark)) {}

std::unique_ptr<Panel> CardPanels::show(Card card) {
    const auto* screen = QGuiApplication::primaryScreen();
    const auto& tint = card.iconTint;
    const auto mark =
        mark_(card.iconSize,
              QColor::fromRgbF(static_cast<float>(tint.red), static_cast<float>(tint.green),
                               static_cast<float>(tint.blue), static_cast<float>(tint.alpha)),
              screen != nullptr ? screen->devicePixelRatio() : 1);
    auto widget = std::make_unique<CardWidget>(std::move(card), mark);
    widget->appear();
    return std::make_unique<ShownCard>(widget.release());
}

} // namespace mnemora::desktop
