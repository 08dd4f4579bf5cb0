// What is known of the session while those that tell of it hang, flood or die. On a message bus of
// its own that serves as both of a session's.

#include "Linux/Desktop/SessionState.h"

#include "fakes/BusService.h"
#include "fakes/Eventually.h"

#include <gtest/gtest.h>

namespace mnemora::desktop {
namespace {

using namespace std::chrono_literals;

constexpr test::Eventually eventually{20s};
constexpr const char* unlocked = "({'Active': <true>, 'LockedHint': <false>},)";
constexpr const char* locked = "({'Active': <true>, 'LockedHint': <true>},)";

TEST(SessionState, IsToldByThoseThatHangFloodOrDieOnceTheyAnswer) {
    test::BusService login("org.freedesktop.login1");
    test::BusService saver("org.freedesktop.ScreenSaver");
    login.takeName();
    saver.takeName();
    login.answer(unlocked);
    GLibThread thread("test-listener");
    const SessionState state(thread);
    ASSERT_TRUE(eventually([&] { return login.calls() == 1 && saver.calls() == 1; }));
    EXPECT_TRUE(state.isInFront()) << "one that hangs says nothing";
    saver.answer("(true,)");
    EXPECT_TRUE(eventually([&] { return !state.isInFront(); })) << "it was asked again";
    saver.answer("(false,)");
    saver.leaveName();
    EXPECT_TRUE(eventually([&] { return state.isInFront(); }));

    const int before = login.calls();
    login.answer("");
    for (int change = 0; change < 5000; ++change)
        login.signal("/org/freedesktop/login1/session/_31", "org.freedesktop.DBus.Properties",
                     "PropertiesChanged",
                     g_variant_new_parsed("('org.freedesktop.login1.Session', "
                                          "{'LockedHint': <true>}, @as [])"));
    ASSERT_TRUE(eventually([&] { return login.calls() > before; }));
    login.answer(locked);
    EXPECT_TRUE(eventually([&] { return !state.isInFront(); })) << "without another signal";
    EXPECT_LT(login.calls(), before + 5);
}

} // namespace
} // namespace mnemora::desktop
