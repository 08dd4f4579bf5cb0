#include "Onboarding/OnboardingWindow.h"

#include "Linux/Desktop/BrandImages.h"
#include "Linux/Desktop/SetupWidgets.h"
#include "Onboarding/OnboardingView.h"
#include "Shell/AppRelauncher.h"

#include <QApplication>
#include <QDialog>
#include <QEvent>
#include <QGraphicsDropShadowEffect>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QPainter>
#include <QPointer>
#include <QScreen>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>
#include <chrono>
#include <utility>
#include <vector>

namespace mnemora {
namespace {

using namespace std::chrono_literals;
using desktop::brandFont;
using desktop::TextLabel;
using desktop::toolkitText;

constexpr int windowWidth = 460;
constexpr auto pollInterval = 1000ms;

constexpr std::string_view introduction =
    "Your mnemora. It quietly remembers what you read, write, and work on across every app — so "
    "your tools can recall it for you. Everything stays on this Mac. Passwords, banking, and "
    "private windows are never read.";
constexpr std::string_view restartTip =
    "Tip: after switching on “On-screen content”, Mnemora needs a quick restart for macOS to honor "
    "it.";

/// The application icon with rounded corners and a shadow.
class IconView : public QWidget {
  public:
    IconView() : icon_(desktop::applicationIcon()) {
        setFixedSize(84, 84);
        setAccessibleName(QStringLiteral("Mnemora"));
        auto shadow = std::make_unique<QGraphicsDropShadowEffect>();
        shadow->setColor(QColor(0, 0, 0, 64));
        shadow->setBlurRadius(20); // the toolkit's radius reaches twice as far
        shadow->setOffset(0, 4);
        setGraphicsEffect(shadow.release());
    }

  protected:
    void paintEvent(QPaintEvent*) override {
        constexpr double radius = 19;
        QPainter painter(this);
        painter.setRenderHints(QPainter::Antialiasing | QPainter::SmoothPixmapTransform);
        QImage picture = icon_.pixmap(size(), devicePixelRatioF()).toImage();
        picture.setDevicePixelRatio(1);
        QBrush brush(picture);
        const double scale = static_cast<double>(width()) / std::max(picture.width(), 1);
        brush.setTransform(QTransform::fromScale(scale, scale));
        painter.fillPath(desktop::continuousRoundedRectangle(rect(), radius), brush);
    }

  private:
    QIcon icon_;
};

/// One permission, with its button while it isn't granted.
class RowView : public desktop::RowFrame {
  public:
    explicit RowView(const OnboardingView::Row& row)
        : symbol_(std::make_unique<desktop::StatusSymbol>(row.isGranted).release()),
          detail_(
              std::make_unique<TextLabel>("", brandFont(11), TextLabel::Tone::secondary).release()),
          on_(std::make_unique<TextLabel>("On", brandFont(13, QFont::DemiBold)).release()),
          grant_(desktop::regularButton("Grant")) {
        auto texts = std::make_unique<QVBoxLayout>();
        texts->setSpacing(2);
        texts->addWidget(
            std::make_unique<TextLabel>(row.title, brandFont(14, QFont::DemiBold)).release());
        texts->addWidget(detail_);
        auto layout = std::make_unique<QHBoxLayout>(this);
        layout->setContentsMargins(14, 14, 14, 14);
        layout->setSpacing(12);
        layout->addWidget(symbol_, 0, Qt::AlignVCenter);
        layout->addLayout(texts.release(), 1);
        on_->setWordWrap(false);
        layout->addWidget(on_, 0, Qt::AlignVCenter);
        layout->addWidget(grant_, 0, Qt::AlignVCenter);
        (void)layout.release(); // the widget's now
        grant_->setAccessibleName(QStringLiteral("Grant: ") + toolkitText(row.title));
        QObject::connect(grant_, &QPushButton::clicked, this, [this] { grantAction_(); });
        set(row);
    }

    void set(const OnboardingView::Row& row) {
        symbol_->setGranted(row.isGranted);
        detail_->setText(row.detail);
        on_->setVisible(row.isGranted);
        grant_->setVisible(!row.isGranted);
        grant_->setAccessibleDescription(toolkitText(row.detail));
        grantAction_ = row.grant;
        takeColors();
    }

  protected:
    void changeEvent(QEvent* event) override {
        RowFrame::changeEvent(event);
        if (event->type() == QEvent::PaletteChange)
            takeColors();
    }

  private:
    void takeColors() {
        QPalette colors;
        colors.setColor(QPalette::WindowText, desktop::grantedColor(*this));
        on_->setPalette(colors);
    }

    desktop::StatusSymbol* symbol_; // all owned by the layout
    TextLabel* detail_;
    TextLabel* on_;
    QPushButton* grant_;
    std::function<void()> grantAction_;
};

} // namespace

class OnboardingWindow::Window : public QDialog {
  public:
    explicit Window(std::function<void()> onClose) : view_(std::move(onClose)) {
        setWindowFlags(Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                       Qt::WindowSystemMenuHint | Qt::WindowCloseButtonHint);
        setWindowTitle(QStringLiteral("Welcome to Mnemora"));
        setFocusPolicy(Qt::ClickFocus); // no ring is drawn before the keyboard is used
        setFocus();
        build();
        update();
        QObject::connect(&poll_, &QTimer::timeout, this, [this] { recheck(); });
        QObject::connect(qApp, &QGuiApplication::applicationStateChanged, this,
                         [this](Qt::ApplicationState state) {
                             if (state == Qt::ApplicationActive)
                                 recheck();
                         });
        poll_.start(pollInterval); // goes on while the window is hidden: it comes back up to date
    }

    void bringToFront() {
        // Later it comes back where it was, if there still is a screen.
        if (!std::exchange(isPlaced_, true) || !QGuiApplication::screenAt(geometry().center()))
            centre();
        showNormal();
        raise();
        activateWindow();
    }

  protected:
    bool event(QEvent* event) override {
        const bool handled = QDialog::event(event);
        if (event->type() == QEvent::LayoutRequest) // a text has become shorter or longer
            fitHeight();
        return handled;
    }

  private:
    void build() {
        auto stack = std::make_unique<QVBoxLayout>(this);
        stack->setContentsMargins(30, 30, 30, 30);
        stack->setSpacing(20);
        stack->addWidget(std::make_unique<IconView>().release(), 0, Qt::AlignHCenter);
        stack->addLayout(heading());
        auto rows = std::make_unique<QVBoxLayout>();
        rows->setSpacing(10);
        for (const auto& row : view_.rows()) {
            rows_.push_back(std::make_unique<RowView>(row).release());
            rows->addWidget(rows_.back());
        }
        stack->addLayout(rows.release());
        tip_ = std::make_unique<TextLabel>(restartTip, brandFont(11), TextLabel::Tone::secondary)
                   .release();
        tip_->setAlignment(Qt::AlignHCenter);
        stack->addWidget(tip_);
        stack->addLayout(buttons());
        (void)stack.release(); // the window's now
        setFixedWidth(windowWidth);
    }

    static QLayout* heading() {
        auto texts = std::make_unique<QVBoxLayout>();
        texts->setSpacing(8);
        auto name = std::make_unique<TextLabel>("Mnemora", brandFont(26, QFont::Bold));
        name->setAlignment(Qt::AlignHCenter);
        texts->addWidget(name.release());
        auto text =
            std::make_unique<TextLabel>(introduction, brandFont(13), TextLabel::Tone::secondary);
        text->setAlignment(Qt::AlignHCenter);
        texts->addWidget(text.release());
        return texts.release();
    }

    QLayout* buttons() {
        auto row = std::make_unique<QHBoxLayout>();
        row->setSpacing(10);
        restart_ = desktop::largeButton("Restart Mnemora", false);
        primary_ = desktop::largeButton("", true);
        QObject::connect(restart_, &QPushButton::clicked, this, [] { AppRelauncher::relaunch(); });
        QObject::connect(primary_, &QPushButton::clicked, this, [this] { view_.close(); });
        row->addWidget(restart_, 1);
        row->addWidget(primary_, 1);
        return row.release();
    }

    void recheck() {
        if (view_.recheck())
            update();
    }

    void update() {
        const auto rows = view_.rows();
        for (std::size_t i = 0; i < rows_.size() && i < rows.size(); ++i)
            rows_[i]->set(rows[i]);
        tip_->setVisible(view_.offersRestart());
        restart_->setVisible(view_.offersRestart());
        primary_->setText(toolkitText(view_.primaryLabel()));
        fitHeight();
    }

    /// The height follows from the texts' at the one width that there is.
    void fitHeight() {
        layout()->activate();
        setFixedHeight(layout()->heightForWidth(windowWidth));
    }

    void centre() {
        if (const QScreen* screen = QGuiApplication::primaryScreen())
            move(screen->availableGeometry().center() - rect().center());
    }

    OnboardingView view_;
    QTimer poll_;
    bool isPlaced_ = false;
    std::vector<RowView*> rows_; // as everything below, owned by the layout
    TextLabel* tip_ = nullptr;
    QPushButton* restart_ = nullptr;
    QPushButton* primary_ = nullptr;
};

OnboardingWindow::OnboardingWindow() : window_(std::make_shared<std::unique_ptr<Window>>()) {
    // A window must not outlive the toolkit's application object.
    QObject::connect(qApp, &QCoreApplication::aboutToQuit, qApp, [weak = std::weak_ptr(window_)] {
        if (const auto window = weak.lock())
            window->reset();
    });
}

OnboardingWindow::~OnboardingWindow() = default;

void OnboardingWindow::show() {
    if (!*window_)
        *window_ = std::make_unique<Window>([weak = std::weak_ptr(window_)] {
            // Called by a button of the window: it goes a turn later.
            if (const auto window = weak.lock(); window && *window) {
                (*window)->hide();
                window->release()->deleteLater();
            }
        });
    (*window_)->bringToFront();
}

} // namespace mnemora
