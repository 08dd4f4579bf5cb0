#pragma once
// Speech with known words, and sound that holds none: from the speech synthesisers and the
// recordings of people that Debian ships, and from arithmetic.

#include "Platform/SpeechRecognizer.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace mnemora::test {

/// Somebody saying something.
struct SpokenSample {
    std::string words;
    std::string name;
    PcmBuffer sound;
};

/// A voice of a synthesiser, as its program names it.
struct Voice {
    enum class Maker { espeak, flite } maker;
    std::string name;
};

/// One channel; absent when the synthesiser isn't installed.
[[nodiscard]] std::optional<PcmBuffer> speak(const Voice& voice, const std::string& words);

/// The people of the package pocketsphinx-testdata: sentences read from a novel, and playing
/// cards called out. Empty when it isn't installed.
[[nodiscard]] std::vector<SpokenSample> peopleReading();
[[nodiscard]] std::vector<SpokenSample> peopleCallingCards();

[[nodiscard]] PcmBuffer silence(double seconds, double sampleRate = 16000);
/// Noise whose power falls with frequency, as that of rooms and streets, at a root mean square of
/// `level`; the same for the same seed.
[[nodiscard]] PcmBuffer pinkNoise(double seconds, double level, std::uint32_t seed,
                                  double sampleRate = 16000);
/// A mouse's or a keyboard's clicks, three a second.
[[nodiscard]] PcmBuffer clicks(double seconds, double sampleRate = 16000);
/// A chord of three decaying notes, another each second.
[[nodiscard]] PcmBuffer chords(double seconds, double sampleRate = 16000);

/// The sound with pink noise that many decibels below its own power.
[[nodiscard]] PcmBuffer withNoise(const PcmBuffer& sound, double decibels, std::uint32_t seed);
/// Both have one channel and the same rate.
void append(PcmBuffer& sound, const PcmBuffer& more);
/// The sound of one channel in `channels` equal ones.
[[nodiscard]] PcmBuffer inChannels(const PcmBuffer& sound, int channels);
[[nodiscard]] double seconds(const PcmBuffer& sound);
/// Where the last loud tenth of a second ends.
[[nodiscard]] double endOfSpeech(const PcmBuffer& sound);

} // namespace mnemora::test
