#pragma once
// A meeting's transcript as a conversation: the user's words at the right, the others' at the left.

#include "Meetings/MeetingSession.h"

#include <QTextDocument>
#include <QTextEdit>
#include <memory>

namespace mnemora {

/// One text document with bubbles painted behind it, so that text can be selected across
/// utterances, right-to-left text and emoji are the toolkit's business, and a transcript of any
/// length opens at once: the document lays out what is visible and the rest when idle.
class TranscriptView : public QTextEdit {
  public:
    explicit TranscriptView(QWidget* parent = nullptr);
    ~TranscriptView() override;

    /// Shows a session from its beginning.
    void show(const MeetingSession& session);
    using QTextEdit::show;

  protected:
    void paintEvent(QPaintEvent* event) override;
    void changeEvent(QEvent* event) override;

  private:
    void fill();
    /// Paints the bubble of a block that has one, and moves the user's to the right.
    void paintBubble(QPainter& painter, const QTextBlock& block);

    MeetingSession session_;
    std::unique_ptr<QTextDocument> document_; // that is shown; null before the first session
};

} // namespace mnemora
