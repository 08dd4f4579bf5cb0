#include "Linux/Desktop/StatusIcon.h"

#include "Linux/Desktop/BrandImages.h"

#include <QGuiApplication>
#include <QPainter>
#include <QPalette>
#include <QPen>

namespace mnemora::desktop {
namespace {

const QColor recordingRed(226, 36, 36);
// Of the icon's side: what the dot takes, and the gap that keeps it apart from the mark.
constexpr double dotPart = 0.44;
constexpr double gapPart = 0.07;

// Of the icon's side: the edge that keeps the mark legible on a panel of its own colour, which
// often is another one than the windows have.
constexpr double edgePart = 0.1;

QPixmap drawMark(int side) {
    const auto ink = QGuiApplication::palette().color(QPalette::WindowText);
    const bool isLight = ink.lightnessF() > 0.5F;
    QPixmap pixmap(side, side);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    const auto mark = menuBarPath(side);
    painter.strokePath(mark, QPen(isLight ? QColor(0, 0, 0, 150) : QColor(255, 255, 255, 190),
                                  side * edgePart, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter.fillPath(mark, ink);
    return pixmap;
}

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
    QIcon icon;
    // Panels take other sizes than the one that was asked for, and screens have scales up to 3.
    for (const int side : {16, size, 22, 24, 32, 2 * size, 44, 48, 3 * size, 64, 66}) {
        auto pixmap = drawMark(side);
        if (recording)
            drawDot(pixmap, side);
        icon.addPixmap(pixmap);
    }
    return icon;
}

} // namespace mnemora::desktop
