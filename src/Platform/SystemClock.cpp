#include "Platform/SystemClock.h"

#include <chrono>
#include <cstdlib>
#include <memory>
#include <unicode/datefmt.h>
#include <unicode/gregocal.h>
#include <unicode/locid.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>
#include <unicode/unistr.h>

namespace mnemora {
namespace {

constexpr double msPerSecond = 1000.0;

icu::Locale userLocale() {
    for (const char* variable : {"LC_ALL", "LC_TIME", "LANG"}) {
        const char* value = std::getenv(variable);
        if (value == nullptr || value[0] == '\0')
            continue;
        const std::string name(value);
        // POSIX's own locale says nothing of a language; American English is its conventions.
        const bool posix = name == "C" || name.starts_with("C.") || name == "POSIX";
        return posix ? icu::Locale::getUS() : icu::Locale(value);
    }
    return icu::Locale::getUS();
}

/// Detected anew at each use, since people travel while the program runs.
std::unique_ptr<icu::TimeZone> userZone() {
    return std::unique_ptr<icu::TimeZone>(icu::TimeZone::detectHostTimeZone());
}

std::string text(icu::DateFormat& formatter, double moment) {
    formatter.adoptTimeZone(userZone().release());
    icu::UnicodeString formatted;
    formatter.format(moment * msPerSecond, formatted);
    std::string result;
    return formatted.toUTF8String(result);
}

icu::DateFormat::EStyle icuStyle(DateStyle style) {
    switch (style) {
    case DateStyle::none:
        return icu::DateFormat::kNone;
    case DateStyle::shortStyle:
        return icu::DateFormat::kShort;
    case DateStyle::medium:
        break;
    }
    return icu::DateFormat::kMedium;
}

} // namespace

double SystemClock::now() const {
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration<double>(sinceEpoch).count();
}

double SystemClock::startOfDay(double moment) const {
    UErrorCode status = U_ZERO_ERROR;
    icu::GregorianCalendar calendar(userZone().release(), icu::Locale::getRoot(), status);
    calendar.setTime(moment * msPerSecond, status);
    // A skipped midnight means the first instant behind the gap, not one of the day before.
    calendar.setSkippedWallTimeOption(UCAL_WALLTIME_NEXT_VALID);
    calendar.setRepeatedWallTimeOption(UCAL_WALLTIME_FIRST);
    for (const auto field : {UCAL_HOUR_OF_DAY, UCAL_MINUTE, UCAL_SECOND, UCAL_MILLISECOND})
        calendar.set(field, 0);
    const double start = calendar.getTime(status);
    return U_SUCCESS(status) ? start / msPerSecond : moment;
}

std::string SystemClock::format(double moment, const std::string& pattern) const {
    UErrorCode status = U_ZERO_ERROR;
    icu::SimpleDateFormat formatter(icu::UnicodeString::fromUTF8(pattern), userLocale(), status);
    return U_SUCCESS(status) ? text(formatter, moment) : std::string();
}

std::string SystemClock::localized(double moment, DateStyle date, DateStyle time) const {
    const std::unique_ptr<icu::DateFormat> formatter(
        icu::DateFormat::createDateTimeInstance(icuStyle(date), icuStyle(time), userLocale()));
    return formatter ? text(*formatter, moment) : std::string();
}

} // namespace mnemora
