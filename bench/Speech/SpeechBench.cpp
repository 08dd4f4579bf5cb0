// What speech recognition hears, and what it costs, through the program's own way: SpeechStream,
// the adapter and the child process. `bench-speech --model FOLDER` measures other weights,
// `bench-speech echo words` only these parts.

#include "Engines/SpeechSamples.h"
#include "Linux/Engines/EngineProcess.h"
#include "Speech/EchoBench.h"
#include "Speech/WordError.h"
#include "Tools/FileTranscriber.h"

#include <QCoreApplication>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace mnemora::bench {
namespace {

using Pace = FileTranscriber::Pace;
using test::SpokenSample;
using test::Voice;

/// The transcript whole, and the figures of its segments.
struct Transcript {
    std::string text;
    int segments = 0;
    double longest = 0;
};

Transcript transcribe(FileTranscriber& transcriber, const PcmBuffer& sound) {
    Transcript transcript;
    const bool isDone = transcriber.transcribe(sound, Pace::fast, [&](const auto& segment) {
        transcript.text += " " + segment.text;
        ++transcript.segments;
        transcript.longest = std::max(transcript.longest, segment.end - segment.start);
    });
    if (!isDone) {
        std::fputs("speech recognition is unavailable\n", stderr);
        std::exit(EXIT_FAILURE);
    }
    return transcript;
}

double childSeconds(FileTranscriber& transcriber) {
    const auto child = transcriber.service().child();
    const auto time = child ? engines::processorTime(*child) : std::nullopt;
    return time ? std::chrono::duration<double>(*time).count() : 0;
}

/// A line of the child's /proc status, in megabytes.
double childMegabytes(FileTranscriber& transcriber, const std::string& name) {
    const auto child = transcriber.service().child();
    std::ifstream status("/proc/" + std::to_string(child.value_or(0)) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with(name + ":"))
            return std::stod(line.substr(name.size() + 1)) / 1024;
    return 0;
}

/// Returns the error in percent.
double printWordError(FileTranscriber& transcriber, const char* set,
                      const std::vector<SpokenSample>& samples, std::optional<double> decibels) {
    int errors = 0;
    std::size_t words = 0;
    std::uint32_t seed = 1;
    for (const auto& sample : samples) {
        const auto heard =
            transcribe(transcriber,
                       decibels ? test::withNoise(sample.sound, *decibels, seed++) : sample.sound);
        const auto spoken = spokenWords(sample.words);
        const int wrong = wordErrors(spoken, spokenWords(heard.text));
        if (wrong > 0 && std::getenv("SPEECH_BENCH_SHOW") != nullptr)
            std::printf("  %s\n    said  %s\n    heard%s\n", sample.name.c_str(),
                        sample.words.c_str(), heard.text.c_str());
        errors += wrong;
        words += spoken.size();
    }
    const double percent = 100.0 * errors / static_cast<double>(std::max<std::size_t>(words, 1));
    std::printf("word error    %5.1f %% of %3zu words  %s, %s\n", percent, words, set,
                decibels ? (std::to_string(static_cast<int>(*decibels)) + " dB noise").c_str()
                         : "clean");
    std::fflush(stdout);
    return percent;
}

std::vector<SpokenSample> synthesised() {
    const std::vector<Voice> voices{{Voice::Maker::espeak, "en-us"},
                                    {Voice::Maker::espeak, "en-gb+f3"},
                                    {Voice::Maker::flite, "slt"},
                                    {Voice::Maker::flite, "rms"},
                                    {Voice::Maker::flite, "awb"}};
    const std::vector<std::string> sentences{
        "could you send me the report before the meeting on thursday",
        "i think we should move the release to the second week of march",
        "the customer asked for a smaller package and a lower price",
        "let me share my screen so that everybody can see the numbers",
        "we agreed to hire two more people for the support team",
        "please remember to book the train tickets for the conference",
        "can everybody hear me or should i call in again from my phone",
        "our new office is on the third floor next to the elevator",
        "the test failed twice last night and nobody knows the reason",
        "she will write a short summary and send it to all of us",
        "how long would it take to translate the manual into french",
        "the budget for next year has to be ready before christmas",
        "i am sorry to be late there was a lot of traffic on the bridge",
        "we need a second opinion before we sign the contract",
        "the weather was so bad that our flight left three hours later",
        "let us talk about the open questions at the end of this call"};
    std::vector<SpokenSample> samples;
    for (const auto& voice : voices)
        for (const auto& sentence : sentences)
            if (auto sound = test::speak(voice, sentence))
                samples.push_back({sentence, voice.name, *std::move(sound)});
    return samples;
}

void printFalseUtterances(FileTranscriber& transcriber) {
    const std::vector<std::pair<const char*, PcmBuffer>> sounds{
        {"silence", test::silence(60)},
        {"quiet noise", test::pinkNoise(60, 0.003, 7)},
        {"loud noise", test::pinkNoise(60, 0.1, 8)},
        {"clicks", test::clicks(60)},
        {"chords", test::chords(60)}};
    for (const auto& [name, sound] : sounds) {
        const auto heard = transcribe(transcriber, sound);
        std::printf("utterances    %5d   in a minute of %s%s\n", heard.segments, name,
                    heard.text.c_str());
    }
}

/// Everybody of the set after one another, a pause after each.
PcmBuffer conversation(const std::vector<SpokenSample>& samples, double pause) {
    auto sound = test::silence(0.5);
    for (const auto& sample : samples) {
        test::append(sound, sample.sound);
        test::append(sound, test::silence(pause));
    }
    return sound;
}

void printCost(FileTranscriber& transcriber, const std::vector<SpokenSample>& people) {
    auto sound = conversation(people, 0.7);
    while (test::seconds(sound) < 120)
        test::append(sound, conversation(people, 0.7));
    double before = childSeconds(transcriber);
    const auto heard = transcribe(transcriber, sound);
    std::printf("CPU seconds   %5.2f   a minute of speech\n",
                (childSeconds(transcriber) - before) * 60 / test::seconds(sound));
    for (const auto& [name, level] : {std::pair{"room noise", 0.002}, std::pair{"silence", 0.0}}) {
        // What a sound server delivers: two channels at 48 kHz.
        const auto quiet = test::inChannels(test::pinkNoise(120, level, 3, 48000), 2);
        before = childSeconds(transcriber);
        (void)transcribe(transcriber, quiet);
        std::printf("CPU seconds   %5.2f   a minute of two streams of %s\n",
                    childSeconds(transcriber) - before, name);
    }
}

/// The same with the echo canceller at work: what others say comes back through the microphone.
void printCostOfACall(FileTranscriber& transcriber, const std::vector<SpokenSample>& people) {
    auto speech = conversation(people, 0.7);
    while (test::seconds(speech) < 120)
        test::append(speech, conversation(people, 0.7));
    for (const auto& [name, sound] :
         {std::pair("others who speak", speech),
          std::pair("their room's noise", test::pinkNoise(120, 0.002, 3)),
          std::pair("nothing", test::silence(120))}) {
        const auto call = callWithLoudspeakers(sound);
        const double before = childSeconds(transcriber);
        (void)transcriber.transcribeCall(call.you, call.them);
        std::printf("CPU seconds   %5.2f   a minute of a call with %s from the loudspeakers\n",
                    (childSeconds(transcriber) - before) * 60 / test::seconds(sound), name);
    }
}

void printUnbroken(FileTranscriber& transcriber, const std::vector<SpokenSample>& people) {
    auto sound = test::silence(0.5);
    for (int round = 0; round < 3; ++round)
        for (const auto& sample : people) {
            auto part = sample.sound;
            // From word to word: without the recording's own silence at both ends.
            part.samples.resize(
                static_cast<std::size_t>(test::endOfSpeech(part) * part.sampleRate));
            part.samples.erase(part.samples.begin(), part.samples.begin() + 4000);
            test::append(sound, part);
        }
    std::string words;
    for (int round = 0; round < 3; ++round)
        for (const auto& sample : people)
            words += sample.words + " ";
    const auto heard = transcribe(transcriber, sound);
    const auto spoken = spokenWords(words);
    std::printf("longest piece %5.1f s of %.0f s without a pause, word error %.1f %%\n",
                heard.longest, test::seconds(sound),
                100.0 * wordErrors(spoken, spokenWords(heard.text)) /
                    static_cast<double>(spoken.size()));
}

void printLatency(FileTranscriber& transcriber, const std::vector<SpokenSample>& people) {
    std::vector<double> delays;
    for (const auto& sample : people) {
        const double end = test::endOfSpeech(sample.sound);
        double heardAt = 0;
        (void)transcriber.transcribe(sample.sound, Pace::realTime,
                                     [&](const auto& segment) { heardAt = segment.heardAt; });
        if (end <= 7)
            delays.push_back(heardAt - end);
    }
    std::ranges::sort(delays);
    if (!delays.empty())
        std::printf("latency       %5.2f s median, %.2f s worst, from the end of speech to its "
                    "segment\n",
                    delays[delays.size() / 2], delays.back());
}

void printLoad(const SpeechEngineSettings& settings) {
    FileTranscriber transcriber(settings);
    const auto recognizer = transcriber.service().recognizer("en");
    const auto begin = std::chrono::steady_clock::now();
    const auto task = recognizer->recognize({}, [](const auto&, const auto&) {});
    const bool isReady = FileTranscriber::waitUntil(
        [&] { return transcriber.service().child().has_value(); }, std::chrono::minutes(1));
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - begin;
    std::printf("load          %5.2f s%s, %.0f MB resident\n", passed.count(),
                isReady ? "" : " (failed)", childMegabytes(transcriber, "VmRSS"));
}

void printWordErrors(FileTranscriber& transcriber, const std::vector<SpokenSample>& people) {
    const auto cards = test::peopleCallingCards();
    for (const auto& [name, set] :
         {std::pair("people reading", &people), std::pair("people calling cards", &cards)})
        for (const auto noise : {std::optional<double>(), std::optional<double>(10)})
            (void)printWordError(transcriber, name, *set, noise);
    auto quiet = people; // a microphone that is turned down by 30 dB
    for (auto& sample : quiet)
        for (float& value : sample.sound.samples)
            value *= 0.0316F;
    (void)printWordError(transcriber, "people reading 30 dB quieter", quiet, std::nullopt);
    const auto voices = synthesised();
    const double little = printWordError(transcriber, "synthetic voices", voices, 20);
    const double much = printWordError(transcriber, "synthetic voices", voices, 10);
    std::printf("word error    %5.1f %%               synthetic voices, mean of both\n",
                (little + much) / 2);
}

int run(const SpeechEngineSettings& settings, const std::vector<std::string>& parts) {
    const auto isWanted = [&](const char* part) {
        return parts.empty() || std::ranges::find(parts, part) != parts.end();
    };
    const auto people = test::peopleReading();
    if (isWanted("load"))
        printLoad(settings);
    FileTranscriber transcriber(settings);
    if (isWanted("words"))
        printWordErrors(transcriber, people);
    if (isWanted("nothing"))
        printFalseUtterances(transcriber);
    if (isWanted("echo"))
        printEcho(transcriber, people);
    if (isWanted("cost")) {
        printCost(transcriber, people);
        printCostOfACall(transcriber, people);
    }
    if (isWanted("unbroken"))
        printUnbroken(transcriber, people);
    if (isWanted("latency"))
        printLatency(transcriber, people);
    std::printf("memory        %5.0f MB at most, %.0f MB now\n",
                childMegabytes(transcriber, "VmHWM"), childMegabytes(transcriber, "VmRSS"));
    return EXIT_SUCCESS;
}

} // namespace
} // namespace mnemora::bench

int main(int count, char** words) {
    const QCoreApplication application(count, words);
    auto settings = mnemora::SpeechEngineSettings::ofInstallation();
    std::vector<std::string> parts(words + 1, words + count);
    if (parts.size() >= 2 && parts[0] == "--model") {
        settings.model = parts[1];
        parts.erase(parts.begin(), parts.begin() + 2);
    }
    return mnemora::bench::run(settings, parts);
}
