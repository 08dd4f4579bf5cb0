#include "Meetings/MeetingsView.h"

#include "Meetings/MeetingColors.h"

#include <QPainter>
#include <QStyledItemDelegate>
#include <utility>

namespace mnemora {
namespace {

constexpr int listWidth = 250;
constexpr int rowInset = 8;
constexpr int rowMargin = 3;
constexpr int betweenLines = 2;
constexpr int countRole = Qt::UserRole;

QFont sized(QFont font, int pixels, QFont::Weight weight) {
    font.setPixelSize(pixels);
    font.setWeight(weight);
    return font;
}

/// A title and below it, smaller and paler, how many segments there are.
class SessionDelegate : public QStyledItemDelegate {
  public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override {
        auto frame = option;
        initStyleOption(&frame, index);
        frame.text.clear();
        frame.widget->style()->drawControl(QStyle::CE_ItemViewItem, &frame, painter, frame.widget);
        const bool isSelected = option.state.testFlag(QStyle::State_Selected);
        const auto title = sized(option.font, textPixels, QFont::DemiBold);
        const auto area = option.rect.adjusted(rowInset, rowMargin, -rowInset, -rowMargin);
        painter->save();
        painter->setPen(
            option.palette.color(isSelected ? QPalette::HighlightedText : QPalette::Text));
        painter->setFont(title);
        const QFontMetrics metrics(title);
        const auto text =
            metrics.elidedText(index.data().toString().simplified(), Qt::ElideRight, area.width());
        painter->drawText(area, Qt::AlignLeft | Qt::AlignTop | Qt::TextSingleLine, text);
        painter->setPen(isSelected ? faded(option.palette.color(QPalette::HighlightedText), 0.8)
                                   : secondaryColor(option.palette));
        painter->setFont(sized(option.font, captionPixels, QFont::Normal));
        painter->drawText(area.adjusted(0, metrics.height() + betweenLines, 0, 0),
                          Qt::AlignLeft | Qt::AlignTop, index.data(countRole).toString());
        painter->restore();
    }

    [[nodiscard]] QSize sizeHint(const QStyleOptionViewItem& option,
                                 const QModelIndex& /*index*/) const override {
        const QFontMetrics title(sized(option.font, textPixels, QFont::DemiBold));
        const QFontMetrics count(sized(option.font, captionPixels, QFont::Normal));
        return {listWidth - 2 * rowInset,
                title.height() + betweenLines + count.height() + 2 * rowMargin};
    }
};

} // namespace

MeetingsView::MeetingsView(std::vector<MeetingSession> sessions)
    : QSplitter(Qt::Horizontal), sessions_(std::move(sessions)) {
    setMinimumSize(720, 460);
    setChildrenCollapsible(false);
    addWidget(&list_);
    addWidget(&detail_);
    setStretchFactor(1, 1);
    setSizes({listWidth, 510});

    nothingSelected_.setText("Select a meeting");
    nothingSelected_.setAlignment(Qt::AlignCenter);
    auto colors = nothingSelected_.palette();
    colors.setColor(QPalette::WindowText, secondaryColor(palette()));
    nothingSelected_.setPalette(colors);
    detail_.addWidget(&nothingSelected_);
    detail_.addWidget(&transcript_);

    list_.setAccessibleName(QStringLiteral("Meetings"));
    list_.setMinimumWidth(listWidth);
    list_.setFrameShape(QFrame::NoFrame);
    list_.setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    fillList();
    connect(&list_, &QListWidget::currentRowChanged, this, &MeetingsView::showRow);
    if (!sessions_.empty())
        list_.setCurrentRow(0);
}

void MeetingsView::fillList() {
    if (sessions_.empty()) {
        auto message = std::make_unique<QListWidgetItem>(
            "No meetings yet.\nStart one from the menu bar:\n“🔴 Record meeting”.");
        message->setFlags(Qt::NoItemFlags);
        message->setFont(sized(list_.font(), 12, QFont::Normal));
        message->setForeground(secondaryColor(palette()));
        const QFontMetrics metrics(message->font());
        message->setSizeHint({listWidth - 2 * rowInset, 3 * metrics.lineSpacing() + 16});
        list_.addItem(message.release());
        return;
    }
    list_.setItemDelegate(std::make_unique<SessionDelegate>(&list_).release()); // the list's child
    list_.setUniformItemSizes(true);
    for (const auto& session : sessions_) {
        auto row = std::make_unique<QListWidgetItem>(QString::fromStdString(session.title));
        row->setData(countRole, QString::number(session.lines.size()) + " segments");
        list_.addItem(row.release());
    }
}

void MeetingsView::showRow(int row) {
    const bool known = row >= 0 && static_cast<size_t>(row) < sessions_.size();
    if (known)
        transcript_.show(sessions_[static_cast<size_t>(row)]);
    detail_.setCurrentWidget(known ? static_cast<QWidget*>(&transcript_) : &nothingSelected_);
}

std::optional<std::string> MeetingsView::selected() const {
    const int row = list_.currentRow();
    if (row < 0 || static_cast<size_t>(row) >= sessions_.size())
        return std::nullopt;
    return sessions_[static_cast<size_t>(row)].id;
}

} // namespace mnemora
