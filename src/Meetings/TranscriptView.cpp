#include "Meetings/TranscriptView.h"

#include "Meetings/MeetingColors.h"

#include <QAbstractTextDocumentLayout>
#include <QEvent>
#include <QPainter>
#include <QScrollBar>
#include <QTextBlock>
#include <QTextLayout>
#include <algorithm>
#include <utility>

namespace mnemora {
namespace {

constexpr int paneMargin = 18;
constexpr int betweenItems = 12;
constexpr int labelToBubble = 3;
constexpr int bubbleInnerX = 11;
constexpr int bubbleInnerY = 8;
constexpr int bubbleRadius = 11;
constexpr int aboveFooter = 4;

/// How a block is painted, kept as its user state.
enum BlockKind { plain = -1, usersBubble = 0, othersBubble = 1 };

QTextCharFormat characters(int pixels, int weight, const QColor& color) {
    QTextCharFormat format;
    format.setProperty(QTextFormat::FontPixelSize, pixels);
    format.setFontWeight(weight);
    format.setForeground(color);
    return format;
}

/// Lines of its own in one block, whatever line breaks the text has.
QString inOneBlock(const std::string& text) {
    auto shown = QString::fromStdString(text);
    return shown.replace("\r\n", "\n").replace('\n', QChar::LineSeparator);
}

class Writer {
  public:
    explicit Writer(QTextDocument& document) : cursor_(&document) { cursor_.beginEditBlock(); }
    ~Writer() { cursor_.endEditBlock(); }
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    void add(const QTextBlockFormat& block, const QTextCharFormat& format, const QString& text,
             BlockKind kind = plain) {
        if (first_)
            cursor_.setBlockFormat(block);
        else
            cursor_.insertBlock(block, format);
        first_ = false;
        cursor_.insertText(text, format);
        cursor_.block().setUserState(kind);
    }

  private:
    QTextCursor cursor_;
    bool first_ = true;
};

QTextBlockFormat paragraph(int above, int below, Qt::Alignment alignment) {
    QTextBlockFormat format;
    format.setTopMargin(above);
    format.setBottomMargin(below);
    format.setAlignment(alignment | Qt::AlignAbsolute);
    return format;
}

void addLine(Writer& writer, const MeetingLine& line, const QPalette& palette) {
    const bool users = line.isUsers();
    const auto labelColor = users ? usersGreen(palette) : secondaryColor(palette);
    writer.add(paragraph(0, 0, users ? Qt::AlignRight : Qt::AlignLeft),
               characters(captionPixels, QFont::DemiBold, labelColor), inOneBlock(line.speaker));
    auto bubble =
        paragraph(labelToBubble + bubbleInnerY, bubbleInnerY + betweenItems, Qt::AlignLeft);
    bubble.setLeftMargin(bubbleInnerX);
    bubble.setRightMargin(bubbleInnerX);
    writer.add(bubble, characters(textPixels, QFont::Normal, palette.color(QPalette::Text)),
               inOneBlock(line.text), users ? usersBubble : othersBubble);
}

} // namespace

TranscriptView::TranscriptView(QWidget* parent) : QTextEdit(parent) {
    setReadOnly(true);
    setUndoRedoEnabled(false);
    setFrameShape(QFrame::NoFrame);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setWordWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
}

TranscriptView::~TranscriptView() {
    setDocument(nullptr);
}

void TranscriptView::show(const MeetingSession& session) {
    session_ = session;
    fill();
    verticalScrollBar()->setValue(0);
}

void TranscriptView::fill() {
    // The document is built while nobody watches: every change would be laid out otherwise.
    auto next = std::make_unique<QTextDocument>();
    next->setUndoRedoEnabled(false);
    next->setDocumentMargin(paneMargin);
    next->setDefaultFont(font());
    next->setDefaultTextOption(document()->defaultTextOption());
    {
        const auto& colors = palette();
        Writer writer(*next);
        writer.add(paragraph(0, betweenItems, Qt::AlignLeft),
                   characters(15, QFont::Bold, colors.color(QPalette::Text)),
                   inOneBlock(session_.title));
        for (const auto& line : session_.lines)
            addLine(writer, line, colors);
        // Of two blocks' margins the toolkit takes the larger one.
        const int above = betweenItems + (session_.lines.empty() ? 0 : bubbleInnerY);
        writer.add(paragraph(above + aboveFooter, 0, Qt::AlignLeft),
                   characters(captionPixels, QFont::Normal, tertiaryColor(colors)),
                   QStringLiteral("Transcribed on-device · audio never uploaded"));
    }
    setDocument(next.get());
    document_ = std::move(next);
}

void TranscriptView::paintEvent(QPaintEvent* event) {
    {
        QPainter painter(viewport());
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
        painter.translate(0, -verticalScrollBar()->value());
        const double bottom = verticalScrollBar()->value() + viewport()->height();
        const auto* layout = document()->documentLayout();
        auto block = cursorForPosition({0, 0}).block();
        if (block.previous().isValid())
            block = block.previous(); // its bubble may reach below its text
        for (; block.isValid(); block = block.next()) {
            if (layout->blockBoundingRect(block).top() > bottom)
                break;
            paintBubble(painter, block);
        }
    }
    QTextEdit::paintEvent(event);
}

void TranscriptView::paintBubble(QPainter& painter, const QTextBlock& block) {
    const auto kind = block.userState();
    const auto* layout = block.layout();
    if (kind == plain || layout->lineCount() == 0)
        return;
    double width = 0;
    for (int i = 0; i < layout->lineCount(); ++i)
        width = std::max(width, layout->lineAt(i).naturalTextWidth());
    const double available = layout->lineAt(0).width();
    // Inside its bubble, wherever that stands, a text begins where its direction begins.
    const double left = bubbleInnerX + (kind == usersBubble ? std::max(0.0, available - width) : 0);
    const bool rightToLeft = block.textDirection() == Qt::RightToLeft;
    for (int i = 0; i < layout->lineCount(); ++i) {
        auto line = layout->lineAt(i);
        const double indent = rightToLeft ? width - line.naturalTextWidth() : 0;
        line.setPosition({left + indent, line.y()});
    }
    const double height = layout->boundingRect().height();
    painter.setBrush(kind == usersBubble ? usersBubbleColor(palette())
                                         : othersBubbleColor(palette()));
    const QRectF text(layout->position().x() + left, layout->position().y(), width, height);
    painter.drawRoundedRect(text.adjusted(-bubbleInnerX, -bubbleInnerY, bubbleInnerX, bubbleInnerY),
                            bubbleRadius, bubbleRadius);
}

void TranscriptView::changeEvent(QEvent* event) {
    QTextEdit::changeEvent(event);
    // Colours are part of the document's formats.
    if (event->type() == QEvent::PaletteChange && !session_.id.empty())
        fill();
}

} // namespace mnemora
