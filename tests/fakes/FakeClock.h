#pragma once
// A clock whose hands a test turns; dates are those of the system clock.

#include "Platform/CoreServices.h"
#include "Platform/SystemClock.h"

namespace mnemora::test {

struct FakeClock : SystemClock {
    double moment = 1'700'000'000;
    [[nodiscard]] double now() const override { return moment; }
};

/// Installs a fake clock and no sentence model for its scope.
struct ScopedFakeClock {
    std::shared_ptr<FakeClock> clock = std::make_shared<FakeClock>();
    ScopedCoreServices services{{.clock = clock, .sentenceModel = [](const std::string&) {
                                     return std::shared_ptr<SentenceModel>();
                                 }}};
};

} // namespace mnemora::test
