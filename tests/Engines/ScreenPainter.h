#pragma once
// Draws screens whose text is known, for tests and benchmarks of recognition.

#include "Platform/ScreenCapture.h"

#include <QColor>
#include <QFont>
#include <QImage>
#include <string>
#include <vector>

namespace mnemora {

/// A picture of 1920 x 1080 that remembers what was written on it. Needs a QGuiApplication (the
/// offscreen platform does).
class ScreenPainter {
  public:
    explicit ScreenPainter(QColor background, int width = 1920, int height = 1080);

    void fill(int x, int y, int width, int height, QColor colour);
    /// Writes one line, its top left corner at the place given.
    void write(int x, int y, const std::string& text, const QFont& font, QColor colour);

    /// Every line written, in order of writing.
    [[nodiscard]] const std::vector<std::string>& lines() const { return lines_; }
    [[nodiscard]] const QImage& picture() const { return picture_; }
    /// The picture as screen capture hands it out.
    [[nodiscard]] Image image() const;

  private:
    QImage picture_;
    std::vector<std::string> lines_;
};

/// A font by its family and height in pixels.
[[nodiscard]] QFont screenFont(const char* family, int pixels, bool bold = false);

} // namespace mnemora
