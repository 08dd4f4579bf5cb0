#pragma once
// Small borderless cards that lie above all windows and never take the keyboard from the one that
// the user works in.

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace mnemora {

/// sRGB, each part from 0 to 1.
struct CardColor {
    double red = 1;
    double green = 1;
    double blue = 1;
    double alpha = 1;

    bool operator==(const CardColor&) const = default;
};

/// Lengths in device-independent pixels, as everywhere in this header.
struct CardMargins {
    int top = 0;
    int left = 0;
    int bottom = 0;
    int right = 0;

    bool operator==(const CardMargins&) const = default;
};

/// A push button of a card.
struct CardButton {
    std::string title;
    /// Looks like the one that is meant, and is the one that Return presses where the card has the
    /// keyboard.
    bool isDefault = false;
    std::function<void()> pressed;
};

/// Where on the visible part of the main screen a card lies.
enum class CardCorner { topRight, bottomRight };

/// What a card shows: the brand mark with the message beside it, and the buttons in a row below
/// at the right. A value, so that tests read what a user would see.
struct Card {
    int iconSize = 20;
    CardColor iconTint{.red = 0.06, .green = 0.72, .blue = 0.51, .alpha = 1};
    /// At most `maxLines` lines, broken at line feeds and where it would get wider than
    /// `maxMessageWidth`; wider where it would need more lines than that.
    std::string message;
    int maxLines = 2;
    int maxMessageWidth = 250;
    int fontSize = 13; // of medium weight
    CardColor textColor;
    std::vector<CardButton> buttons;
    int iconToMessage = 10;
    int messageToButtons = 12;
    int betweenButtons = 8;
    CardMargins margins;
    CardColor background{.red = 0.1, .green = 0.1, .blue = 0.1, .alpha = 0.97};
    CardColor border{.alpha = 0.08}; // one pixel wide
    int cornerRadius = 14;
    CardCorner corner = CardCorner::topRight;
    /// Distance from both edges of the corner.
    int distance = 18;
    /// Called for a click anywhere outside the buttons; empty: such a click does nothing.
    std::function<void()> clicked;
    std::chrono::milliseconds fadeIn{0};
    std::chrono::milliseconds fadeOut{0};
};

/// An area with its origin at the top left, y growing downwards.
struct CardFrame {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;

    bool operator==(const CardFrame&) const = default;
};

/// Where a card of `width` by `height` lies on a screen whose part free of bars is `visible`.
[[nodiscard]] constexpr CardFrame cardFrame(const Card& card, const CardFrame& visible, int width,
                                            int height) {
    const bool top = card.corner == CardCorner::topRight;
    return {.x = visible.x + visible.width - width - card.distance,
            .y = top ? visible.y + card.distance
                     : visible.y + visible.height - height - card.distance,
            .width = width,
            .height = height};
}

/// A card on screen. Destroying it takes it away, fading as the card says; allowed inside any of
/// its callbacks, of which none is called afterwards. Main thread.
struct Panel {
    virtual ~Panel() = default;
};

/// Shows cards. Main thread.
struct Panels {
    virtual ~Panels() = default;

    /// Puts a card on top, without activating anything; null when nothing can be shown.
    [[nodiscard]] virtual std::unique_ptr<Panel> show(Card card) = 0;
};

} // namespace mnemora
