#pragma once
// Reading one line as JSON with the limits that an outside peer calls for.

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace mnemora {

/// A parsed line. Absent on any error: no JSON, invalid numbers, brackets nested deeper than 512.
[[nodiscard]] std::optional<nlohmann::json> parseJson(std::string_view line);

/// The text of the top-level member "id" of a parsed object: a number that no machine integer
/// holds as it was written, everything else compactly. Absent when there is none.
[[nodiscard]] std::optional<std::string> idText(const nlohmann::json& message,
                                                std::string_view line);

/// Compact text of a value; invalid UTF-8 becomes U+FFFD, a slash is escaped (it can only stand
/// inside strings there).
[[nodiscard]] std::string compactJson(const nlohmann::json& value);

} // namespace mnemora
