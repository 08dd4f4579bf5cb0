#pragma once
// Colours and text sizes of the Meetings window, derived from the desktop's own palette so that
// they fit light and dark alike.

#include <QColor>
#include <QPalette>

namespace mnemora {

/// Pixels of a font; the desktop's scale factor comes on top.
constexpr int textPixels = 13;
constexpr int captionPixels = 11;

[[nodiscard]] inline QColor faded(QColor color, double opacity) {
    color.setAlphaF(static_cast<float>(opacity));
    return color;
}
[[nodiscard]] inline bool isDark(const QPalette& palette) {
    return palette.color(QPalette::Base).lightness() < 128;
}
[[nodiscard]] inline QColor secondaryColor(const QPalette& palette) {
    return faded(palette.color(QPalette::Text), 0.62);
}
/// Still at a contrast above 4.5 to 1.
[[nodiscard]] inline QColor tertiaryColor(const QPalette& palette) {
    return faded(palette.color(QPalette::Text), 0.55);
}
/// Dark enough to be read as text on a light ground.
[[nodiscard]] inline QColor usersGreen(const QPalette& palette) {
    return isDark(palette) ? QColor(48, 209, 88) : QColor(31, 138, 58);
}
[[nodiscard]] inline QColor usersBubbleColor(const QPalette& palette) {
    return faded(isDark(palette) ? QColor(48, 209, 88) : QColor(52, 199, 89), 0.14);
}
[[nodiscard]] inline QColor othersBubbleColor(const QPalette& palette) {
    return faded(palette.color(QPalette::Text), 0.12 * 0.62);
}

} // namespace mnemora
