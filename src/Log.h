#pragma once
// The two log-line writers. Every diagnostic of the program is one line on standard error,
// written whole with a single write so that lines of several threads never mix. There are no
// time stamps, no other levels and no log file.

#include <string_view>

namespace mnemora {

/// Writes "[mnemora] " and the message as one line. Any thread. Control characters in the
/// message, line breaks included, become blanks: what is captured must not forge log lines.
void logInfo(std::string_view message);

/// Writes "[mnemora][error] " and the message as one line. Any thread; as logInfo.
void logError(std::string_view message);

} // namespace mnemora
