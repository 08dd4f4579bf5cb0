#pragma once
// Wall-clock time and the user's calendar, as the logic asks for them.

#include <string>

namespace mnemora {

/// How long a localised date or time text is.
enum class DateStyle { none, shortStyle, medium };

/// Abstract so that tests can turn the hands; the real one reads the system clock and the user's
/// locale and time zone. Any thread.
struct Clock {
    virtual ~Clock() = default;

    /// Seconds since the Unix epoch.
    [[nodiscard]] virtual double now() const = 0;
    /// The first instant of the day that `moment` falls in, in the user's calendar and time zone.
    [[nodiscard]] virtual double startOfDay(double moment) const = 0;
    /// `moment` by a Unicode date pattern (UTS 35), such as "yyyy-MM-dd", in the user's calendar.
    [[nodiscard]] virtual std::string format(double moment, const std::string& pattern) const = 0;
    /// `moment` in the user's language.
    [[nodiscard]] virtual std::string localized(double moment, DateStyle date,
                                                DateStyle time) const = 0;
};

} // namespace mnemora
