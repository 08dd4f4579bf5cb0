#include "Linux/Desktop/BrandImages.h"

#include "Shell/Branding.h"
#include "Shell/Theme.h"

#include <QGuiApplication>
#include <QPainter>

#include <cmath>

namespace mnemora::desktop {
namespace {

constexpr double iconCorner = 19.0 / 84; // of its side, as the setup window rounds it

QPainterPath toolkitPath(const VectorPath& path, double height) {
    const auto point = [height](const PathPoint& p) { return QPointF(p.x, height - p.y); };
    QPainterPath result;
    result.setFillRule(Qt::OddEvenFill);
    for (const PathElement& each : path)
        switch (each.kind) {
        case PathElement::Kind::move:
            result.moveTo(point(each.end));
            break;
        case PathElement::Kind::line:
            result.lineTo(point(each.end));
            break;
        case PathElement::Kind::curve:
            result.cubicTo(point(each.control1), point(each.control2), point(each.end));
            break;
        case PathElement::Kind::close:
            result.closeSubpath();
        }
    return result;
}

} // namespace

QColor terracotta() {
    constexpr auto color = Brand::terracotta;
    return QColor::fromRgbF(static_cast<float>(color.red), static_cast<float>(color.green),
                            static_cast<float>(color.blue), static_cast<float>(color.opacity));
}

QPainterPath menuBarPath(double size) {
    return toolkitPath(Branding::menuBarPath(size), size);
}

QPixmap menuBarImage(double size, const QColor& tint, double scale) {
    const int side = static_cast<int>(std::ceil(size * scale));
    QPixmap picture(side, side);
    picture.setDevicePixelRatio(scale);
    picture.fill(Qt::transparent);
    QPainter painter(&picture);
    if (!painter.isActive())
        return picture;
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillPath(menuBarPath(size), tint);
    return picture;
}

QPainterPath continuousRoundedRectangle(const QRectF& rectangle, double radius) {
    // A corner begins one and a half radii before the edge; its middle lies where a quarter of a
    // circle with that radius has its own.
    const double begin =
        std::min(1.5 * radius, std::min(rectangle.width(), rectangle.height()) / 2);
    const double control = begin * 0.1875;
    const double left = rectangle.left(), right = rectangle.right();
    const double top = rectangle.top(), bottom = rectangle.bottom();
    QPainterPath path(QPointF(left + begin, top));
    path.lineTo(right - begin, top);
    path.cubicTo(right - control, top, right, top + control, right, top + begin);
    path.lineTo(right, bottom - begin);
    path.cubicTo(right, bottom - control, right - control, bottom, right - begin, bottom);
    path.lineTo(left + begin, bottom);
    path.cubicTo(left + control, bottom, left, bottom - control, left, bottom - begin);
    path.lineTo(left, top + begin);
    path.cubicTo(left, top + control, left + control, top, left + begin, top);
    path.closeSubpath();
    return path;
}

QImage drawApplicationIcon(int pixels) {
    QImage picture(pixels, pixels, QImage::Format_ARGB32_Premultiplied);
    picture.fill(Qt::transparent);
    QPainter painter(&picture);
    painter.setRenderHint(QPainter::Antialiasing);
    const double side = pixels;
    const double mark = pixels < 32 ? 0.84 : 0.7; // of its side; small ones need more to be legible
    painter.fillPath(continuousRoundedRectangle(QRectF(0, 0, side, side), side * iconCorner),
                     terracotta());
    painter.translate(side * (1 - mark) / 2, side * (1 - mark) / 2);
    painter.fillPath(menuBarPath(side * mark), Qt::white);
    return picture;
}

QIcon applicationIcon(const std::filesystem::path& folder) {
    for (const char* name : {"AppIcon.png", "AppIcon.svg"}) {
        const QPixmap resource(QString::fromStdString((folder / name).string()));
        if (!resource.isNull())
            return QIcon(resource);
    }
    if (const QIcon own = QGuiApplication::windowIcon(); !own.isNull())
        return own;
    if (const QIcon themed = QIcon::fromTheme(QStringLiteral("app.mnemora.Mnemora"));
        !themed.isNull())
        return themed;
    QPixmap nothing(64, 64);
    nothing.fill(Qt::transparent);
    return QIcon(nothing);
}

} // namespace mnemora::desktop
