#include "Meetings/MeetingSession.h"

#include "Store/MnemoraStore.h"

#include <algorithm>
#include <unordered_map>

namespace mnemora {

std::vector<MeetingSession> groupIntoSessions(const std::vector<MeetingSegment>& segments) {
    std::vector<MeetingSession> sessions;
    std::unordered_map<std::string, size_t> places;
    for (const auto& segment : segments) {
        const auto [place, isNew] = places.try_emplace(segment.key, sessions.size());
        if (isNew)
            sessions.push_back(
                {.id = segment.key, .title = segment.title, .date = segment.ts, .lines = {}});
        sessions[place->second].lines.push_back({segment.speaker, segment.text});
    }
    std::ranges::reverse(sessions);
    return sessions;
}

std::vector<MeetingSession> loadMeetingSessions(MnemoraStore& store) {
    return groupIntoSessions(store.query(
        "SELECT ts, person, body, title, bundle FROM events WHERE kind = 'meeting' ORDER BY ts ASC",
        {}, [](const RowReader& row) {
            return MeetingSegment{.ts = row.real(0),
                                  .speaker = row.text(1).value_or(""),
                                  .text = row.text(2).value_or(""),
                                  .title = row.text(3).value_or("Meeting"),
                                  .key = row.text(4).value_or("0")};
        }));
}

} // namespace mnemora
