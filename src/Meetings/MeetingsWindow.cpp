#include "Meetings/MeetingsWindow.h"

#include "Meetings/MeetingSession.h"
#include "Meetings/MeetingsView.h"

#include <QCoreApplication>
#include <QMainWindow>
#include <QScreen>

namespace mnemora {

MeetingsWindow& MeetingsWindow::shared() {
    static MeetingsWindow window;
    return window;
}

MeetingsWindow::MeetingsWindow() = default;
MeetingsWindow::~MeetingsWindow() = default;

void MeetingsWindow::show(MnemoraStore& store) {
    auto view = std::make_unique<MeetingsView>(loadMeetingSessions(store));
    const bool isFirst = !window_;
    if (isFirst) {
        window_ = std::make_unique<QMainWindow>();
        // No minimise button.
        window_->setWindowFlags(Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                                Qt::WindowSystemMenuHint | Qt::WindowMaximizeButtonHint |
                                Qt::WindowCloseButtonHint);
        window_->setWindowTitle(QStringLiteral("Mnemora — Meetings"));
        window_->setAttribute(Qt::WA_QuitOnClose, false);
        // A widget must not outlive the toolkit's application.
        QObject::connect(QCoreApplication::instance(), &QCoreApplication::aboutToQuit,
                         window_.get(), [this] { window_.reset(); });
    }
    window_->setCentralWidget(view.release());
    if (isFirst) {
        window_->resize(760, 480);
        const auto area = window_->screen()->availableGeometry();
        window_->move(area.center() - window_->rect().center());
    }
    window_->setWindowState(window_->windowState() & ~Qt::WindowMinimized);
    window_->show();
    window_->raise();
    window_->activateWindow();
}

} // namespace mnemora
