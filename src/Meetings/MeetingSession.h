#pragma once
// Recorded meetings as the Meetings window shows them, grouped from the stored segments.

#include <string>
#include <vector>

namespace mnemora {

class MnemoraStore;

/// One utterance.
struct MeetingLine {
    std::string speaker;
    std::string text;

    /// The user's own words stand at the right.
    [[nodiscard]] bool isUsers() const { return speaker == "You"; }
    bool operator==(const MeetingLine&) const = default;
};

/// One recorded meeting.
struct MeetingSession {
    /// The recording's session key.
    std::string id;
    /// Title of its earliest segment.
    std::string title;
    /// When that segment was stored, seconds since the Unix epoch.
    double date = 0;
    /// In the order in which they were stored.
    std::vector<MeetingLine> lines;

    bool operator==(const MeetingSession&) const = default;
};

/// One stored segment.
struct MeetingSegment {
    double ts = 0;
    std::string speaker;
    std::string text;
    std::string title;
    std::string key;
};

/// Groups segments, earliest first, by their key; the meeting that began last comes first.
[[nodiscard]] std::vector<MeetingSession>
groupIntoSessions(const std::vector<MeetingSegment>& segments);

/// All meetings in the store; empty when there are none or they can't be read. Waits for the
/// store.
[[nodiscard]] std::vector<MeetingSession> loadMeetingSessions(MnemoraStore& store);

} // namespace mnemora
