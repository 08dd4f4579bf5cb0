#pragma once
// The pieces of the setup window and of the settings pages.

#include <QLabel>
#include <QPushButton>
#include <QWidget>

#include <string_view>

namespace mnemora::desktop {

/// What was said in UTF-8.
[[nodiscard]] QString toolkitText(std::string_view text);

/// "Outfit", or the desktop's own font where that isn't installed; `size` in pixels at 96 dots per
/// inch, so that the text grows with the user's font resolution.
[[nodiscard]] QFont brandFont(double size, QFont::Weight weight = QFont::Normal);

/// A text that wraps.
class TextLabel : public QLabel {
  public:
    enum class Tone { primary, secondary };

    TextLabel(std::string_view text, const QFont& font, Tone tone = Tone::primary);
    void setText(std::string_view text);

  protected:
    void changeEvent(QEvent* event) override;

  private:
    void takeColors();

    Tone tone_;
    bool isTaking_ = false;
};

/// A mark that says whether a permission is granted: a check in a green disc, or a dashed circle.
class StatusSymbol : public QWidget {
  public:
    explicit StatusSymbol(bool isGranted);
    void setGranted(bool isGranted);

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    bool isGranted_;
};

/// The ground of one row.
class RowFrame : public QWidget {
  protected:
    void paintEvent(QPaintEvent* event) override;
};

/// The green of what is granted, on this widget's ground.
[[nodiscard]] QColor grantedColor(const QWidget& widget);

/// A large button; the tinted one is the window's default.
[[nodiscard]] QPushButton* largeButton(std::string_view label, bool tinted);

/// Tints the button and makes it its window's default, or takes both back.
void setTinted(QPushButton& button, bool tinted);

/// A button of the usual size.
[[nodiscard]] QPushButton* regularButton(std::string_view label);

} // namespace mnemora::desktop
