#pragma once
// A call with loudspeakers: what comes back through the microphone, and what the user says.

#include "Engines/SpeechSamples.h"
#include "Tools/FileTranscriber.h"

namespace mnemora::bench {

/// Prints how many played words were taken for the user's, and how many of the user's were lost,
/// with and without knowing what the loudspeakers play. `others` speak from the loudspeakers.
void printEcho(FileTranscriber& transcriber, const std::vector<test::SpokenSample>& others);

/// Both sides of a call with loudspeakers, as sound servers deliver them: 48 kHz, two channels.
struct Call {
    PcmBuffer you;
    PcmBuffer them;
};
/// The others play `them` (16 kHz, one channel), of which the microphone hears the room's echo,
/// 10 dB below, and nobody speaks into it.
[[nodiscard]] Call callWithLoudspeakers(const PcmBuffer& them);

} // namespace mnemora::bench
