#include "Speech/EchoBench.h"

#include "Speech/WordError.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <span>

namespace mnemora::bench {
namespace {

using test::SpokenSample;
using test::Voice;

constexpr double rate = 16000;

/// Loudspeaker, room and microphone: small speakers that distort a little, the direct way and a
/// tail of reflections that falls by 60 dB in 0.4 s (as in an office).
PcmBuffer throughTheRoom(const PcmBuffer& sound, double delay) {
    std::mt19937 generator(17);
    std::uniform_real_distribution<double> when(0.002, 0.4);
    std::normal_distribution<double> strength;
    std::vector<std::pair<std::size_t, double>> ways{{0, 1}};
    for (int i = 0; i < 300; ++i) {
        const double time = when(generator);
        ways.emplace_back(static_cast<std::size_t>(time * rate),
                          0.12 * strength(generator) * std::pow(10.0, -3 * time / 0.4));
    }
    const auto lag = static_cast<std::size_t>(delay * rate);
    auto echo = test::silence(test::seconds(sound) + delay + 0.5);
    double low = 0;
    for (std::size_t i = 0; i < sound.samples.size(); ++i) {
        low += 0.08 * (static_cast<double>(sound.samples[i]) - low); // below 200 Hz nothing comes
        const double played = std::tanh(1.5 * (static_cast<double>(sound.samples[i]) - low)) / 1.5;
        for (const auto& [at, gain] : ways)
            if (i + lag + at < echo.samples.size())
                echo.samples[i + lag + at] += static_cast<float>(gain * played);
    }
    return echo;
}

void mix(PcmBuffer& into, const PcmBuffer& sound, double from, double factor) {
    const auto begin = static_cast<std::size_t>(from * rate);
    into.samples.resize(std::max(into.samples.size(), begin + sound.samples.size()));
    for (std::size_t i = 0; i < sound.samples.size(); ++i)
        into.samples[begin + i] += static_cast<float>(factor) * sound.samples[i];
}

std::vector<SpokenSample> replies() {
    const Voice woman{Voice::Maker::flite, "slt"};
    std::vector<SpokenSample> samples;
    for (const char* words : {"that sounds good to me", "could you send me the numbers please",
                              "i will call the customer tomorrow morning"})
        if (auto sound = test::speak(woman, words))
            samples.push_back({words, woman.name, *std::move(sound)});
    return samples;
}

struct Tally {
    std::size_t words = 0;
    int faults = 0;

    [[nodiscard]] double percent() const {
        return 100.0 * faults / static_cast<double>(std::max<std::size_t>(words, 1));
    }
};

/// What was said from a time on.
std::string joined(const std::vector<HeardSegment>& segments, double from) {
    std::string all;
    for (const auto& segment : segments)
        if (segment.end > from)
            all += segment.text + " ";
    return all;
}

/// Somebody speaks from the loudspeakers, maybe after others did.
struct Scene {
    std::string words;
    PcmBuffer them;
    PcmBuffer echo; // as loud as what is played
    double begin = 0;
    double end = 0;

    Scene(const SpokenSample& other, std::span<const SpokenSample> before)
        : words(other.words), them(test::silence(0.5)) {
        for (const auto& sample : before) {
            test::append(them, sample.sound);
            test::append(them, test::silence(0.8));
        }
        begin = test::seconds(them);
        end = begin + test::endOfSpeech(other.sound);
        test::append(them, other.sound);
        echo = throughTheRoom(them, 0.12);
    }
};

struct Own {
    const SpokenSample* sample = nullptr; // null: the user says nothing
    double from = 0;
};

/// Counts what was stored as the user's words beside what the user said.
void hold(FileTranscriber& transcriber, const Scene& scene, Own own, double decibels,
          bool knowsOrigin, Tally& tally) {
    auto you = test::pinkNoise(test::seconds(scene.echo), 0.002, 5);
    mix(you, scene.echo, 0, std::pow(10.0, decibels / 20));
    if (own.sample != nullptr)
        mix(you, own.sample->sound, own.from, 1);
    auto them = scene.them;
    them.samples.resize(you.samples.size());
    if (knowsOrigin) {
        you.origin = SoundOrigin::microphone;
        them.origin = SoundOrigin::loudspeakers;
    }
    const auto said = transcriber.transcribeCall(you, them);
    if (!said) {
        std::fputs("speech recognition is unavailable\n", stderr);
        std::exit(EXIT_FAILURE);
    }
    const auto spoken = spokenWords(own.sample != nullptr ? own.sample->words : "");
    const auto heard = joined(said->you, scene.begin);
    const int wrong = wordErrors(spoken, spokenWords(heard));
    if (wrong > 0 && knowsOrigin && std::getenv("SPEECH_BENCH_SHOW") != nullptr)
        std::printf("  played  %s\n    said  %s\n    You   %s\n", scene.words.c_str(),
                    own.sample != nullptr ? own.sample->words.c_str() : "", heard.c_str());
    tally.faults += wrong;
    tally.words += own.sample != nullptr ? spoken.size() : spokenWords(scene.words).size();
}

struct Tallies {
    Tally without;
    Tally with;

    void hold(FileTranscriber& transcriber, const Scene& scene, Own own, double decibels) {
        bench::hold(transcriber, scene, own, decibels, false, without);
        bench::hold(transcriber, scene, own, decibels, true, with);
    }
};

void print(const char* what, const Tallies& tallies) {
    std::printf("echo          %5.1f %%, %.1f %% if all were taken for the user's  %s\n",
                tallies.with.percent(), tallies.without.percent(), what);
    std::fflush(stdout);
}

/// Each sample thrice: what that adds lies above everything that the recogniser hears.
PcmBuffer asDelivered(const PcmBuffer& sound, SoundOrigin origin) {
    PcmBuffer fast{.sampleRate = 3 * rate, .channels = 1, .samples = {}, .origin = origin};
    fast.samples.reserve(3 * sound.samples.size());
    for (const float sample : sound.samples)
        fast.samples.insert(fast.samples.end(), 3, sample);
    auto delivered = test::inChannels(fast, 2);
    delivered.origin = origin;
    return delivered;
}

} // namespace

Call callWithLoudspeakers(const PcmBuffer& them) {
    auto you = test::pinkNoise(test::seconds(them), 0.002, 5);
    mix(you, throughTheRoom(them, 0.12), 0, std::pow(10.0, -10.0 / 20));
    you.samples.resize(them.samples.size());
    return {asDelivered(you, SoundOrigin::microphone),
            asDelivered(them, SoundOrigin::loudspeakers)};
}

void printEcho(FileTranscriber& transcriber, const std::vector<SpokenSample>& others) {
    const auto own = replies();
    const auto all = std::span(others);
    for (const bool isLate : {false, true}) {
        std::printf("echo          %s\n",
                    isLate ? "later in the call" : "with a call's first words");
        Tallies alone;
        Tallies together;
        Tallies replying;
        for (const auto& other : others) {
            const Scene scene(other, isLate ? all.first(std::min<std::size_t>(2, all.size()))
                                            : all.first(0));
            for (const double level : {-6.0, -14.0, -22.0})
                alone.hold(transcriber, scene, {}, level);
            for (const auto& words : own) {
                together.hold(transcriber, scene, {&words, scene.begin + 0.7}, -10);
                replying.hold(transcriber, scene, {&words, scene.end + 0.2}, -10);
            }
        }
        print("of played words stored as the user's, echo 6 to 22 dB below", alone);
        print("word error of a reply right after them", replying);
        print("word error of the user while they speak", together);
    }
}

} // namespace mnemora::bench
