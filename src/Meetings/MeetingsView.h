#pragma once
// What the Meetings window holds: the list of meetings, and the selected one's transcript.

#include "Meetings/MeetingSession.h"
#include "Meetings/TranscriptView.h"

#include <QLabel>
#include <QListWidget>
#include <QSplitter>
#include <QStackedWidget>
#include <optional>
#include <string>
#include <vector>

namespace mnemora {

/// Main thread.
class MeetingsView : public QSplitter {
  public:
    /// Selects the first session, the newest one, where there is one.
    explicit MeetingsView(std::vector<MeetingSession> sessions);

    /// The `id` of the session that is shown, if any.
    [[nodiscard]] std::optional<std::string> selected() const;

  private:
    void fillList();
    void showRow(int row);

    const std::vector<MeetingSession> sessions_;
    QListWidget list_;
    QStackedWidget detail_;
    TranscriptView transcript_;
    QLabel nothingSelected_;
};

} // namespace mnemora
