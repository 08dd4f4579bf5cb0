#pragma once
// Loudspeakers are heard by the microphone. Words that were just played and come back through it
// are nobody's own, so they are taken out of what the microphone heard.

#include <string>

namespace mnemora::engines::speech {

/// What remains of `heard`, a microphone's words, without those that the loudspeakers `played`
/// meanwhile: everything when nothing long enough matches, nothing when it is an echo whole, else
/// what stands before and after the echo. English words; punctuation and case don't count.
[[nodiscard]] std::string withoutEcho(const std::string& heard, const std::string& played);

} // namespace mnemora::engines::speech
