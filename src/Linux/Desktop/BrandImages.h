#pragma once
// The mark and the application icon as pictures.

#include "Support/Installation.h"

#include <QColor>
#include <QIcon>
#include <QImage>
#include <QPainterPath>
#include <QPixmap>

#include <filesystem>

class QPainter;

namespace mnemora::desktop {

/// Brand::terracotta for the toolkit.
[[nodiscard]] QColor terracotta();

/// The mark for a square with sides of `size`, y growing downwards; filled by the even-odd rule.
[[nodiscard]] QPainterPath menuBarPath(double size);

/// The mark as a square picture with sides of `size` device-independent pixels, in one colour on
/// nothing: black is the template, and whoever shows it on a light or dark ground passes the colour
/// that fits. `scale` is that of the screen.
[[nodiscard]] QPixmap menuBarImage(double size, const QColor& tint = Qt::black, double scale = 1);

/// A rectangle whose corners go over into its sides gradually.
[[nodiscard]] QPainterPath continuousRoundedRectangle(const QRectF& rectangle, double radius);

/// Draws the application icon: the mark in white on the brand's colour.
[[nodiscard]] QImage drawApplicationIcon(int pixels);

/// The icon resource AppIcon (PNG or SVG) among the data in `folder`; else the application's own,
/// else an empty picture of 64 x 64. Main thread.
[[nodiscard]] QIcon applicationIcon(const std::filesystem::path& folder = installation::data());

} // namespace mnemora::desktop
