#include "Meetings/MeetingSession.h"

#include "Store/StoreFixture.h"

namespace mnemora::test {
namespace {

class MeetingSessionTest : public StoreTest {};

TEST_F(MeetingSessionTest, GroupsStoredSegmentsNewestMeetingFirst) {
    auto& store = open();
    EXPECT_TRUE(loadMeetingSessions(store).empty());
    outside("INSERT INTO events(ts, source, kind, person, title, bundle, body, hash) VALUES"
            "(30, 'audio', 'meeting', 'You',  'B', 'b', 'third', '1'),"
            "(10, 'audio', 'meeting', 'You',  'A', 'a', 'first', '2'),"
            "(20, 'audio', 'meeting', 'Them', 'A renamed', 'a', 'second', '3'),"
            "(31, 'screen', 'window', 'You',  'B', 'b', 'no meeting', '4'),"
            "(32, 'audio', 'meeting', 'Them', 'B', 'b', 'fourth', '5'),"
            "(40, 'audio', 'meeting', 'You',  'A', 'a', 'late', '6'),"
            "(50, 'audio', 'meeting', NULL, NULL, NULL, NULL, '7'),"
            "(51, 'audio', 'meeting', 'you', 'T', NULL, 'x', '8');");
    const std::vector<MeetingSession> expected = {
        {"0", "Meeting", 50, {{"", ""}, {"you", "x"}}},
        {"b", "B", 30, {{"You", "third"}, {"Them", "fourth"}}},
        {"a", "A", 10, {{"You", "first"}, {"Them", "second"}, {"You", "late"}}},
    };
    EXPECT_EQ(loadMeetingSessions(store), expected);
}

TEST(MeetingLine, OnlyTheExactLabelIsTheUsers) {
    EXPECT_TRUE((MeetingLine{"You", ""}).isUsers());
    for (const auto* other : {"you", "Them", "", "You "})
        EXPECT_FALSE((MeetingLine{other, ""}).isUsers());
}

} // namespace
} // namespace mnemora::test
