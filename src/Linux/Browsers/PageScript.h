#pragma once
// The script texts that this host understands: for each supported browser one that asks for the
// address of its active tab and one that asks for the text of that tab's page.

#include "Linux/Browsers/PageMessages.h"

#include <optional>
#include <string>
#include <string_view>

namespace mnemora::browsers {

struct PageScript {
    std::string bundleIdentifier;
    PageQuestion question = PageQuestion::address;

    bool operator==(const PageScript&) const = default;
};

/// What the text asks of which browser; absent for any other text, however little it differs.
[[nodiscard]] std::optional<PageScript> parsePageScript(std::string_view text);

} // namespace mnemora::browsers
