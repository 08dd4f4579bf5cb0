#include "Platform/SystemClock.h"
#include "fakes/ScopedVariable.h"

#include <gtest/gtest.h>

namespace mnemora {
namespace {

class SystemClockTest : public testing::Test {
  protected:
    void use(const char* zone, const char* language) const {
        zone_.set(zone);
        language_.set(language);
    }
    SystemClock clock;

  private:
    const test::ScopedVariable zone_{"TZ", "UTC"};
    const test::ScopedVariable language_{"LC_ALL", "en_US.UTF-8"};
};

TEST_F(SystemClockTest, StartsADayAtItsFirstInstant) {
    EXPECT_EQ(clock.startOfDay(1'763'294'400), 1'763'251'200); // 2025-11-16T12:00Z
    use("Europe/Berlin", "de_DE.UTF-8");
    EXPECT_EQ(clock.startOfDay(1'763'294'400), 1'763'247'600); // 00:00 +01:00
    // In Santiago the clocks went from 24:00 to 01:00 that night: the day starts at 01:00 -03:00.
    use("America/Santiago", "es_CL.UTF-8");
    EXPECT_EQ(clock.startOfDay(1'757'246'400), 1'757'217'600); // 2025-09-07, 04:00Z
}

TEST_F(SystemClockTest, WritesDatesInTheUsersLanguage) {
    EXPECT_EQ(clock.format(1'763'294'400, "yyyy-MM-dd"), "2025-11-16");
    EXPECT_EQ(clock.localized(1'763'294'400, DateStyle::medium, DateStyle::shortStyle),
              "Nov 16, 2025, 12:00\u202FPM");
    use("Europe/Berlin", "de_DE.UTF-8");
    EXPECT_EQ(clock.localized(1'763'294'400, DateStyle::medium, DateStyle::shortStyle),
              "16.11.2025, 13:00");
    use("UTC", "C.UTF-8");
    EXPECT_EQ(clock.localized(1'763'294'400, DateStyle::medium, DateStyle::none), "Nov 16, 2025");
}

} // namespace
} // namespace mnemora
