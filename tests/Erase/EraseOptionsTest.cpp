#include "Erase/EraseOptions.h"
#include "Platform/SystemClock.h"
#include "fakes/ScopedVariable.h"

#include <gtest/gtest.h>
#include <sstream>

namespace mnemora::test {
namespace {

/// Splits at commas; a time holds a blank.
std::vector<std::string> words(const std::string& line) {
    std::vector<std::string> parts;
    std::istringstream stream(line);
    for (std::string part; std::getline(stream, part, ',');)
        parts.push_back(part);
    return parts;
}

class EraseOptionsTest : public testing::Test {
  protected:
    const ScopedVariable zone{"TZ", "UTC"};
    static std::variant<EraseOptions, std::string> parse(const std::string& line) {
        return parseEraseOptions(words(line), SystemClock());
    }
    static TimeRange range(const std::string& line) {
        const auto parsed = parse(line);
        const auto* options = std::get_if<EraseOptions>(&parsed);
        EXPECT_NE(options, nullptr) << line;
        return options != nullptr ? options->range : TimeRange{};
    }
};

TEST_F(EraseOptionsTest, ADayIsTheUsersOwnHoweverLong) {
    struct {
        const char* zone;
        const char* day;
        double from;
        double hours;
    } const days[] = {
        {"UTC", "2026-11-20", 1795132800, 24},
        {"Europe/Berlin", "2026-11-20", 1795129200, 24},
        {"Europe/Berlin", "2026-03-29", 1774738800, 23},
        {"Europe/Berlin", "2026-10-25", 1792879200, 25},
        {"America/Sao_Paulo", "2018-11-04", 1541300400, 23}, // has no midnight
        {"Pacific/Kiritimati", "2026-11-20", 1795082400, 24},
    };
    for (const auto& day : days) {
        zone.set(day.zone);
        const auto found = range(std::string("--day,") + day.day);
        EXPECT_EQ(found.from, day.from) << day.zone << " " << day.day;
        EXPECT_EQ(found.until - found.from, day.hours * 3600) << day.zone << " " << day.day;
    }
}

TEST_F(EraseOptionsTest, TimesAreLocalAndDaysAtTheEndAreWhole) {
    zone.set("Europe/Berlin");
    const double noon = 1795129200 + 12 * 3600;
    EXPECT_EQ(range("--from,2026-11-20 12:00"), TimeRange{.from = noon});
    EXPECT_EQ(range("--to,2026-11-20T12:00:05"), TimeRange{.until = noon + 5});
    EXPECT_EQ(range("--from,2026-11-20,--to,2026-11-21"),
              (TimeRange{.from = noon - 12 * 3600, .until = noon + 36 * 3600}));
    EXPECT_EQ(range("--all,--yes"), TimeRange{});
    // 02:30 happens twice on this day: both count.
    EXPECT_EQ(range("--from,2026-10-25 02:30,--to,2026-10-25 02:30"),
              (TimeRange{.from = 1792888200, .until = 1792891800}));
}

TEST_F(EraseOptionsTest, RefusesWhatItDoesNotUnderstand) {
    for (const char* line : {"",
                             "--yes",
                             "--all,--day,2026-11-20",
                             "--day,2026-11-20,--day,2026-11-21",
                             "--day",
                             "--day,2026-02-30",
                             "--day,2026-13-01",
                             "--day,yesterday",
                             "--day,2026-11-20x",
                             "--day,2026-11-20 10:00",
                             "--from,2026-11-20 24:00",
                             "--from,2026-11-20 10:5x",
                             "--from,2026-11-21,--to,2026-11-20",
                             "--all,--from,2026-11-20",
                             "--everything",
                             "--day,26-11-20",
                             "--from,26-11-20",
                             "--day,2026-11-2",
                             "--day, 2026-11-20",
                             "--day,2026-+1-20",
                             "--from,2026-11-20 10:5",
                             "--from,2026-11-20 10:-5",
                             "--from,2026-11-20 10:05:",
                             "--from,2026-11-20x10:05",
                             "--from,2026-11-20 10:60",
                             "--from,2026-11-20,--from,2026-11-21",
                             "--from,2026-11-20,--to,2026-11-21,--to,2026-11-22",
                             "--all,--wait,soon",
                             "--all,--wait,-1",
                             "all"})
        EXPECT_TRUE(std::holds_alternative<std::string>(parse(line))) << line;
}

} // namespace
} // namespace mnemora::test
