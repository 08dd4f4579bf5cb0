#pragma once
// Cards as small windows of the toolkit.

#include "Platform/Panel.h"

#include <QColor>
#include <QPixmap>
#include <functional>

namespace mnemora::desktop {

/// Needs the toolkit's application object. Main thread. Under Wayland the compositor decides where
/// a card lies.
class CardPanels : public Panels {
  public:
    /// Draws the brand mark: a square of `size` pixels at `scale` device pixels each.
    using MarkPainter = std::function<QPixmap(int size, const QColor& tint, double scale)>;

    explicit CardPanels(MarkPainter mark);

    [[nodiscard]] std::unique_ptr<Panel> show(Card card) override;

  private:
    const MarkPainter mark_;
};

} // namespace mnemora::desktop
