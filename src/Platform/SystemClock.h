#pragma once
// The system's clock with the user's calendar, language and time zone, by ICU.

#include "Platform/Clock.h"

namespace mnemora {

/// The language follows LC_ALL, LC_TIME and LANG, in this order; the time zone is read anew when
/// TZ or the system's setting has changed. A day starts at its first existing instant, also where
/// daylight saving skips midnight.
class SystemClock : public Clock {
  public:
    [[nodiscard]] double now() const override;
    [[nodiscard]] double startOfDay(double moment) const override;
    [[nodiscard]] std::string format(double moment, const std::string& pattern) const override;
    [[nodiscard]] std::string localized(double moment, DateStyle date,
                                        DateStyle time) const override;
};

} // namespace mnemora
