#pragma once
// What must not be read: a pure function over the frontmost application and its window's title.

#include <optional>
#include <set>
#include <string>

namespace mnemora {

/// Namespace-like holder. Any thread.
struct Privacy {
    Privacy() = delete;

    /// Bundle-identifier prefixes of applications whose content is never read.
    [[nodiscard]] static const std::set<std::string>& excludedBundlePrefixes();

    /// True when the content of the sample must not be read: the identifier begins with an
    /// excluded prefix, or the title contains a private keyword; both without regard to case.
    [[nodiscard]] static bool shouldRedact(const std::optional<std::string>& bundle,
                                           const std::optional<std::string>& title);
};

} // namespace mnemora
