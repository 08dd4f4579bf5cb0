#include "Linux/Desktop/SetupWidgets.h"

#include "Linux/Desktop/BrandImages.h"

#include <QApplication>
#include <QEvent>
#include <QFontDatabase>
#include <QPainter>

#include <cmath>
#include <memory>

namespace mnemora::desktop {
namespace {

constexpr double symbolSize = 21;

/// So much of the text's colour that small print keeps a contrast of at least 4.5 to 1.
QColor secondaryColor(const QPalette& palette) {
    constexpr float share = 0.68F;
    const QColor text = palette.color(QPalette::WindowText);
    const QColor ground = palette.color(QPalette::Window);
    const auto mix = [](float a, float b) { return a * share + b * (1 - share); };
    return QColor::fromRgbF(mix(text.redF(), ground.redF()), mix(text.greenF(), ground.greenF()),
                            mix(text.blueF(), ground.blueF()));
}

bool isDark(const QPalette& palette) {
    return palette.color(QPalette::Base).lightnessF() < 0.5F;
}

QPushButton* button(std::string_view label, const QFont& font) {
    auto made = std::make_unique<QPushButton>(toolkitText(label));
    made->setFont(font);
    made->setAutoDefault(false); // Return is the default button's wherever the focus is
    made->setFocusPolicy(Qt::StrongFocus);
    return made.release(); // taken by the layout that it is put into
}

} // namespace

QString toolkitText(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

QFont brandFont(double size, QFont::Weight weight) {
    QFont font = QApplication::font();
    if (QFontDatabase::hasFamily(QStringLiteral("Outfit")))
        font.setFamily(QStringLiteral("Outfit"));
    font.setPointSizeF(size * 72 / 96);
    font.setWeight(weight);
    return font;
}

TextLabel::TextLabel(std::string_view text, const QFont& font, Tone tone) : tone_(tone) {
    setFont(font);
    setTextFormat(Qt::PlainText);
    setWordWrap(true);
    setText(text);
    takeColors();
}

void TextLabel::setText(std::string_view text) {
    QLabel::setText(toolkitText(text));
}

void TextLabel::changeEvent(QEvent* event) {
    QLabel::changeEvent(event);
    if (event->type() == QEvent::PaletteChange && !isTaking_)
        takeColors();
}

void TextLabel::takeColors() {
    if (tone_ == Tone::primary)
        return;
    isTaking_ = true;
    QPalette colors;
    colors.setColor(QPalette::WindowText, secondaryColor(QApplication::palette()));
    setPalette(colors);
    isTaking_ = false;
}

StatusSymbol::StatusSymbol(bool isGranted) : isGranted_(!isGranted) {
    setFixedSize(static_cast<int>(symbolSize) + 3, static_cast<int>(symbolSize) + 3);
    setGranted(isGranted);
}

void StatusSymbol::setGranted(bool isGranted) {
    if (isGranted_ == isGranted)
        return;
    isGranted_ = isGranted;
    setAccessibleName(isGranted ? QStringLiteral("Granted") : QStringLiteral("Not granted"));
    update();
}

void StatusSymbol::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QPointF middle = QRectF(rect()).center();
    if (!isGranted_) {
        constexpr double width = 1.6;
        constexpr double radius = symbolSize / 2 - width / 2;
        QPen pen(secondaryColor(palette()), width, Qt::CustomDashLine, Qt::RoundCap);
        // Eleven dashes to the circle, in widths of the pen.
        const double step = 2 * M_PI * radius / 11 / width;
        pen.setDashPattern({step * 0.4, step * 0.6});
        painter.setPen(pen);
        painter.drawEllipse(middle, radius, radius);
        return;
    }
    painter.setPen(Qt::NoPen);
    painter.setBrush(grantedColor(*this));
    painter.drawEllipse(middle, symbolSize / 2, symbolSize / 2);
    QPen pen(palette().color(QPalette::Base), 2.2, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    painter.setPen(pen);
    painter.setBrush(Qt::NoBrush);
    const QPointF check[] = {middle + QPointF(-4.4, 0.4), middle + QPointF(-1.4, 3.6),
                             middle + QPointF(4.4, -3.6)};
    painter.drawPolyline(check, 3);
}

void RowFrame::paintEvent(QPaintEvent*) {
    constexpr double radius = 11;
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillPath(continuousRoundedRectangle(QRectF(rect()), radius), palette().base());
}

QColor grantedColor(const QWidget& widget) {
    return isDark(widget.palette()) ? QColor(50, 208, 92) : QColor(29, 131, 57);
}

QPushButton* largeButton(std::string_view label, bool tinted) {
    QPushButton* made = button(label, brandFont(14, QFont::DemiBold));
    made->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed); // equal shares of the width
    made->setMinimumHeight(36);
    setTinted(*made, tinted);
    return made;
}

void setTinted(QPushButton& button, bool tinted) {
    button.setDefault(tinted);
    const QColor color = terracotta();
    button.setStyleSheet(
        tinted ? QStringLiteral("QPushButton { color: white; background: %1; border: 2px solid %1;"
                                " border-radius: 7px; padding: 4px 12px; outline: none; }"
                                "QPushButton:hover { background: %2; border-color: %2; }"
                                "QPushButton:pressed { background: %3; border-color: %3; }"
                                "QPushButton:focus { border-color: palette(window-text); }")
                     .arg(color.name(), color.lighter(106).name(), color.darker(112).name())
               : QString());
    if (!tinted)
        button.setPalette({}); // the style sheet's colours stay behind otherwise
}

QPushButton* regularButton(std::string_view label) {
    return button(label, brandFont(13));
}

} // namespace mnemora::desktop
