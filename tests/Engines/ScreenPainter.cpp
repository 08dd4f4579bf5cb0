#include "Engines/ScreenPainter.h"

#include <QFontMetrics>
#include <QPainter>
#include <cstring>

namespace mnemora {

ScreenPainter::ScreenPainter(QColor background, int width, int height)
    : picture_(width, height, QImage::Format_RGB32) {
    picture_.fill(background);
}

void ScreenPainter::fill(int x, int y, int width, int height, QColor colour) {
    QPainter(&picture_).fillRect(x, y, width, height, colour);
}

void ScreenPainter::write(int x, int y, const std::string& text, const QFont& font, QColor colour) {
    QPainter painter(&picture_);
    painter.setFont(font);
    painter.setPen(colour);
    painter.drawText(x, y + QFontMetrics(font).ascent(), QString::fromStdString(text));
    lines_.push_back(text);
}

Image ScreenPainter::image() const {
    const auto size = static_cast<std::size_t>(picture_.sizeInBytes());
    auto pixels = std::make_shared<std::vector<std::uint8_t>>(size);
    std::memcpy(pixels->data(), picture_.constBits(), size);
    return {.width = picture_.width(),
            .height = picture_.height(),
            .stride = static_cast<std::size_t>(picture_.bytesPerLine()),
            .pixels = std::move(pixels)};
}

QFont screenFont(const char* family, int pixels, bool bold) {
    QFont font{QString::fromLatin1(family)};
    font.setPixelSize(pixels);
    font.setBold(bold);
    return font;
}

} // namespace mnemora
