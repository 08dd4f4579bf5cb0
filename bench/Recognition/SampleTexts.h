#pragma once
// What the rendered screens say.

#include <string>
#include <vector>

namespace mnemora::bench {

/// Sentences as people write them to each other.
[[nodiscard]] const std::vector<std::string>& sentences();
/// Lines of a program, indented.
[[nodiscard]] const std::vector<std::string>& codeLines();
/// Commands and what they print.
[[nodiscard]] const std::vector<std::string>& terminalLines();
[[nodiscard]] const std::vector<std::string>& people();

} // namespace mnemora::bench
