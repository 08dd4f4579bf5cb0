#include "Engines/SpeechSamples.h"

#include "Tools/FileTranscriber.h"
#include "fakes/TemporaryFolder.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <random>
#include <spawn.h>
#include <sys/wait.h>

extern char** environ;

namespace mnemora::test {
namespace {

namespace fs = std::filesystem;

const fs::path recordings = "/usr/share/pocketsphinx/test/data";

bool runProgram(std::vector<std::string> words) {
    std::vector<char*> arguments;
    for (auto& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    pid_t pid = -1;
    if (posix_spawnp(&pid, arguments[0], nullptr, nullptr, arguments.data(), environ) != 0)
        return false;
    int status = 0;
    return waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

double power(const PcmBuffer& sound) {
    double sum = 0;
    for (const float sample : sound.samples)
        sum += static_cast<double>(sample) * static_cast<double>(sample);
    return sound.samples.empty() ? 0 : sum / static_cast<double>(sound.samples.size());
}

/// The lines "<s> words </s> (name)" of a transcription file.
std::vector<SpokenSample> transcribedIn(const fs::path& folder, const std::string& transcription) {
    std::vector<SpokenSample> samples;
    std::ifstream file(folder / transcription);
    for (std::string line; std::getline(file, line);) {
        const auto from = line.find("<s>");
        const auto to = line.find("</s>");
        const auto open = line.find('(');
        const auto close = line.find(')');
        if (from == std::string::npos || close == std::string::npos)
            continue;
        const auto name = line.substr(open + 1, close - open - 1);
        if (auto sound = readSoundFile(folder / (name + ".wav")))
            samples.push_back({line.substr(from + 3, to - from - 3), name, *std::move(sound)});
    }
    return samples;
}

template <class Wave>
PcmBuffer made(double seconds, double sampleRate, Wave wave) {
    PcmBuffer sound{.sampleRate = sampleRate, .channels = 1, .samples = {}};
    sound.samples.resize(static_cast<std::size_t>(seconds * sampleRate));
    for (std::size_t i = 0; i < sound.samples.size(); ++i)
        sound.samples[i] = static_cast<float>(wave(static_cast<double>(i) / sampleRate));
    return sound;
}

} // namespace

std::optional<PcmBuffer> speak(const Voice& voice, const std::string& words) {
    const TemporaryFolder folder;
    const auto file = (folder / "voice.wav").string();
    const bool isSpoken =
        voice.maker == Voice::Maker::espeak
            ? runProgram({"espeak-ng", "-v", voice.name, "-s", "150", "-w", file, words})
            : runProgram({"flite", "-voice", voice.name, "-t", words, "-o", file});
    return isSpoken ? readSoundFile(file) : std::nullopt;
}

std::vector<SpokenSample> peopleReading() {
    return transcribedIn(recordings / "librivox", "transcription");
}

std::vector<SpokenSample> peopleCallingCards() {
    return transcribedIn(recordings / "cards", "cards.transcription");
}

PcmBuffer silence(double seconds, double sampleRate) {
    return made(seconds, sampleRate, [](double) { return 0.0; });
}

PcmBuffer pinkNoise(double seconds, double level, std::uint32_t seed, double sampleRate) {
    std::mt19937 generator(seed);
    std::normal_distribution<double> white;
    // Paul Kellet's filter, the "economy" one (musicdsp.org, "Pink noise filter").
    double slow = 0;
    double middle = 0;
    double quick = 0;
    auto sound = made(seconds, sampleRate, [&](double) {
        const double value = white(generator);
        slow = 0.99765 * slow + value * 0.0990460;
        middle = 0.96300 * middle + value * 0.2965164;
        quick = 0.57000 * quick + value * 1.0526913;
        return (slow + middle + quick + value * 0.1848) * 0.05;
    });
    const double factor = level / std::max(std::sqrt(power(sound)), 1e-9);
    for (float& sample : sound.samples)
        sample = static_cast<float>(static_cast<double>(sample) * factor);
    return sound;
}

PcmBuffer clicks(double seconds, double sampleRate) {
    return made(seconds, sampleRate, [](double time) {
        const double since = std::fmod(time, 1.0 / 3);
        return 0.7 * std::exp(-since * 400) * std::sin(since * 2 * std::numbers::pi * 2500);
    });
}

PcmBuffer chords(double seconds, double sampleRate) {
    return made(seconds, sampleRate, [](double time) {
        const double since = std::fmod(time, 1.0);
        const double root = 220 * std::pow(2.0, std::fmod(std::floor(time) * 5, 12.0) / 12);
        double sum = 0;
        for (const double interval : {1.0, 1.25, 1.5})
            sum += std::sin(2 * std::numbers::pi * root * interval * time);
        return 0.2 * sum * std::exp(-since * 2);
    });
}

PcmBuffer withNoise(const PcmBuffer& sound, double decibels, std::uint32_t seed) {
    const double level = std::sqrt(power(sound) / std::pow(10.0, decibels / 10));
    const auto noise = pinkNoise(seconds(sound) + 1, level, seed, sound.sampleRate);
    auto noisy = sound;
    for (std::size_t i = 0; i < noisy.samples.size(); ++i)
        noisy.samples[i] += noise.samples[i];
    return noisy;
}

void append(PcmBuffer& sound, const PcmBuffer& more) {
    sound.samples.insert(sound.samples.end(), more.samples.begin(), more.samples.end());
}

PcmBuffer inChannels(const PcmBuffer& sound, int channels) {
    PcmBuffer wide{.sampleRate = sound.sampleRate, .channels = channels, .samples = {}};
    for (const float sample : sound.samples)
        wide.samples.insert(wide.samples.end(), static_cast<std::size_t>(channels), sample);
    return wide;
}

double seconds(const PcmBuffer& sound) {
    return static_cast<double>(sound.frames()) / sound.sampleRate;
}

double endOfSpeech(const PcmBuffer& sound) {
    const auto step = static_cast<std::size_t>(sound.sampleRate / 10);
    const double loud = power(sound) / 100;
    for (auto end = sound.samples.size(); end >= step; end -= step / 4) {
        double sum = 0;
        for (auto i = end - step; i < end; ++i)
            sum += static_cast<double>(sound.samples[i]) * static_cast<double>(sound.samples[i]);
        if (sum / static_cast<double>(step) > loud)
            return static_cast<double>(end) / sound.sampleRate;
    }
    return 0;
}

} // namespace mnemora::test
