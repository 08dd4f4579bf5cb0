#include "Linux/Desktop/StatusIcon.h"

#include "Linux/Desktop/BrandImages.h"

#include <QGuiApplication>
#include <QPainter>
#include <QPalette>

namespace mnemora::desktop {
namespace {

const QColor recordingRed(226, 36, 36);
// Of the icon's side: what the dot takes, and the gap that keeps it apart from the mark.
constexpr double dotPart = 0.44;
constexpr double gapPart = 0.07;

void drawDot(QPixmap& pixmap, double size) {
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    const double dot = size * dotPart;
    const double gap = size * gapPart;
    const QRectF place(size - dot, size - dot, dot, dot);
    painter.setCompositionMode(QPainter::CompositionMode_Clear);
    painter.setBrush(Qt::black);
    painter.drawEllipse(place.adjusted(-gap, -gap, gap, gap));
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
    painter.setBrush(recordingRed);
    painter.drawEllipse(place);
}

} // namespace

QIcon statusIcon(int size, bool recording) {
    const auto ink = QGuiApplication::palette().color(QPalette::WindowText);
    QIcon icon;
    // Panels take other sizes than the one that was asked for, and screens have scales up to 3.
    for (const int side : {16, size, 22, 24, 32, 2 * size, 44, 48, 3 * size, 64, 66}) {
        auto pixmap = menuBarImage(side, ink);
        if (recording)
            drawDot(pixmap, side);
        icon.addPixmap(pixmap);
    }
    return icon;
}

} // namespace mnemora::desktop
