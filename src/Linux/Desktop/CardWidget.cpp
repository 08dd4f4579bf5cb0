#include "Linux/Desktop/CardWidget.h"

#include <QApplication>
#include <QBitmap>
#include <QBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>
#include <QScreen>
#include <algorithm>
#include <utility>
#include <xcb/xcb.h>

namespace mnemora::desktop {
namespace {

struct Free {
    void operator()(void* reply) const { std::free(reply); }
};

QColor colorOf(const CardColor& color) {
    return QColor::fromRgbF(static_cast<float>(color.red), static_cast<float>(color.green),
                            static_cast<float>(color.blue), static_cast<float>(color.alpha));
}

/// Whether windows may be translucent: on X11 when somebody owns the compositing manager's
/// selection (Extended Window Manager Hints, "_NET_WM_CM_Sn").
bool isComposited() {
    const auto* x11 = qApp->nativeInterface<QNativeInterface::QX11Application>();
    auto* connection = x11 != nullptr ? x11->connection() : nullptr;
    if (connection == nullptr)
        return true;
    constexpr std::string_view name = "_NET_WM_CM_S0";
    const std::unique_ptr<xcb_intern_atom_reply_t, Free> atom(xcb_intern_atom_reply(
        connection, xcb_intern_atom(connection, 0, name.size(), name.data()), nullptr));
    if (!atom)
        return false;
    const std::unique_ptr<xcb_get_selection_owner_reply_t, Free> owner(
        xcb_get_selection_owner_reply(connection, xcb_get_selection_owner(connection, atom->atom),
                                      nullptr));
    return owner && owner->owner != XCB_NONE;
}

/// The message within its width, or as wide as its own lines are where a wide font would need more
/// lines than the card has: no word is cut off.
QSize messageSize(const Card& card, const QFontMetrics& metrics, const QString& text) {
    const auto fitted = [&](int width) {
        return metrics.boundingRect({0, 0, width, 10'000}, Qt::TextWordWrap, text).size();
    };
    const int most = card.maxLines * metrics.lineSpacing();
    auto size = fitted(card.maxMessageWidth);
    if (size.height() > most)
        size = fitted(10'000);
    // What hangs below the last base line and a slanted end may reach beyond the metrics.
    return {size.width() + 2, std::min(size.height(), most) + 2};
}

/// Buttons on the dark card look alike under every theme.
constexpr auto buttonStyle =
    "QPushButton { color: white; background: rgba(255,255,255,40); border: none;"
    " border-radius: 6px; padding: 5px 14px; font-size: 9.75pt; }"
    "QPushButton:hover { background: rgba(255,255,255,64); }"
    "QPushButton:pressed { background: rgba(255,255,255,26); }"
    "QPushButton:default { background: rgb(15,138,98); }"
    "QPushButton:default:hover { background: rgb(18,158,112); }"
    "QPushButton:default:pressed { background: rgb(12,112,80); }";

} // namespace

CardWidget::CardWidget(Card card, const QPixmap& mark)
    : QWidget(nullptr, Qt::ToolTip | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                           Qt::WindowDoesNotAcceptFocus),
      card_(std::move(card)) {
    setAttribute(Qt::WA_ShowWithoutActivating);
    setAttribute(Qt::WA_TranslucentBackground);
    setFocusPolicy(Qt::NoFocus);
    setWindowTitle("Mnemora");
    auto column = std::make_unique<QVBoxLayout>();
    const auto& margins = card_.margins;
    column->setContentsMargins(margins.left, margins.top, margins.right, margins.bottom);
    column->setSpacing(card_.messageToButtons);
    addTopRow(*column, mark);
    if (!card_.buttons.empty())
        addButtons(*column);
    setLayout(column.release());
    adjustSize();
    setFixedSize(size());
}

void CardWidget::addTopRow(QBoxLayout& column, const QPixmap& mark) {
    auto icon = std::make_unique<QLabel>();
    icon->setPixmap(mark);
    auto message = std::make_unique<QLabel>();
    QFont font = message->font();
    font.setPointSizeF(card_.fontSize * 72.0 / 96); // grows with the user's text size
    font.setWeight(QFont::Medium);
    message->setFont(font);
    message->setTextFormat(Qt::PlainText);
    message->setText(QString::fromStdString(card_.message));
    message->setWordWrap(true);
    message->setFixedSize(messageSize(card_, QFontMetrics(font), message->text()));
    auto colors = message->palette();
    colors.setColor(QPalette::WindowText, colorOf(card_.textColor));
    message->setPalette(colors);
    auto row = std::make_unique<QHBoxLayout>();
    row->setSpacing(card_.iconToMessage);
    for (auto* label : {icon.release(), message.release()}) {
        label->setAttribute(Qt::WA_TransparentForMouseEvents); // the card is what is clicked
        row->addWidget(label, 0, Qt::AlignVCenter);
    }
    column.addLayout(row.release());
}

void CardWidget::addButtons(QBoxLayout& column) {
    auto row = std::make_unique<QHBoxLayout>();
    row->setSpacing(card_.betweenButtons);
    row->addStretch();
    for (const auto& button : card_.buttons) {
        auto made = std::make_unique<QPushButton>(QString::fromStdString(button.title));
        made->setFocusPolicy(Qt::NoFocus);
        made->setAutoDefault(false);
        made->setDefault(button.isDefault);
        made->setStyleSheet(buttonStyle);
        connect(made.get(), &QPushButton::clicked, this, [this, &button] { call(button.pressed); });
        row->addWidget(made.release());
    }
    column.addLayout(row.release());
}

void CardWidget::place() {
    const auto* screen = QGuiApplication::primaryScreen();
    if (screen == nullptr)
        return;
    const auto visible = screen->availableGeometry();
    const auto frame = cardFrame(
        card_, {visible.x(), visible.y(), visible.width(), visible.height()}, width(), height());
    move(frame.x, frame.y);
}

void CardWidget::follow(QScreen* screen) {
    QObject::disconnect(screenChanges_);
    if (screen != nullptr)
        screenChanges_ =
            connect(screen, &QScreen::availableGeometryChanged, this, &CardWidget::place);
    place();
}

void CardWidget::fadeTo(double opacity, std::chrono::milliseconds duration) {
    fade_.stop(); // one that comes in would fight with the one that goes out
    fade_.setEndValue(opacity);
    fade_.setDuration(static_cast<int>(duration.count()));
    fade_.start();
}

void CardWidget::appear() {
    // A card stays until it is answered: it comes along when its screen goes or gets smaller.
    connect(qApp, &QGuiApplication::primaryScreenChanged, this, &CardWidget::follow);
    follow(QGuiApplication::primaryScreen());
    if (!isComposited()) {
        QBitmap shape(size());
        shape.fill(Qt::color0);
        QPainter painter(&shape);
        painter.setPen(Qt::NoPen);
        painter.setBrush(Qt::color1);
        painter.drawRoundedRect(rect(), card_.cornerRadius, card_.cornerRadius);
        painter.end();
        setMask(shape);
    }
    if (card_.fadeIn.count() > 0) {
        setWindowOpacity(0);
        fadeTo(1, card_.fadeIn);
    }
    show();
    raise();
}

void CardWidget::retire() {
    retired_ = true;
    if (card_.fadeOut.count() == 0) {
        hide();
        deleteLater();
        return;
    }
    fadeTo(0, card_.fadeOut);
    connect(&fade_, &QAbstractAnimation::finished, this, &QObject::deleteLater);
}

void CardWidget::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    if (!mask().isNull()) // its edge isn't soft, and what shows behind a soft one is black here
        painter.fillRect(rect(), colorOf(card_.background));
    painter.setBrush(colorOf(card_.background));
    painter.setPen(colorOf(card_.border));
    painter.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), card_.cornerRadius,
                            card_.cornerRadius);
}

void CardWidget::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton)
        call(card_.clicked);
}

void CardWidget::call(const std::function<void()>& callback) {
    if (!retired_ && callback)
        callback();
}

} // namespace mnemora::desktop
