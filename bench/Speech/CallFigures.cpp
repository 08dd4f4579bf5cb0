// From the end of speech in the microphone or in what is played to the row in the store: the
// program's recorder, its sound adapters and its engine. Started by bench/call.py.

#include "Engines/SpeechSamples.h"
#include "Linux/Engines/EngineSpeechService.h"
#include "Linux/Sound/PulseAudioInput.h"
#include "Linux/Sound/PulseSystemAudio.h"
#include "Meetings/MeetingRecorder.h"
#include "Platform/CoreServices.h"
#include "Sound/SoundSession.h"
#include "Store/StoreFixture.h"
#include "Tools/FileTranscriber.h"

#include <QCoreApplication>
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <fstream>
#include <thread>

namespace mnemora::bench {
namespace {

using Time = std::chrono::steady_clock::time_point;
using namespace std::chrono_literals;

/// When sound was last loud.
class LastLoud {
  public:
    void hear(const PcmBuffer& buffer) {
        const auto isLoud = [](float sample) { return sample > 0.01F || sample < -0.01F; };
        if (std::ranges::any_of(buffer.samples, isLoud))
            at_ = std::chrono::steady_clock::now();
    }
    [[nodiscard]] Time at() const { return at_; }

  private:
    std::atomic<Time> at_ = Time();
};

struct ObservedInput : pulse::PulseAudioInput {
    using PulseAudioInput::PulseAudioInput;
    LastLoud loud;

    void installTap(int frames, std::function<void(const PcmBuffer&)> tap) override {
        PulseAudioInput::installTap(frames, [this, tap](const PcmBuffer& buffer) {
            loud.hear(buffer);
            tap(buffer);
        });
    }
};

struct ObservedOutput : pulse::PulseSystemAudio {
    LastLoud loud;

    Outcome<std::shared_ptr<SystemAudioCapture>>
    start(const Format& format, std::function<void(const PcmBuffer&)> sink) override {
        return PulseSystemAudio::start(format, [this, sink](const PcmBuffer& buffer) {
            loud.hear(buffer);
            sink(buffer);
        });
    }
};

void play(const char* sink, const PcmBuffer& sound) {
    const auto path = std::string(std::getenv("AUDIO_SESSION")) + "/played";
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(sound.samples.data()),
               static_cast<std::streamsize>(sound.samples.size() * sizeof(float)));
    test::shell("pacat --playback --latency-msec=50 --raw --format=float32le --channels=1 --rate=" +
                std::to_string(static_cast<int>(sound.sampleRate)) + " --device=" + sink + " " +
                path);
}

std::size_t rows() {
    return test::outside("SELECT id FROM events WHERE kind = 'meeting'").size();
}

/// Seconds; absent when nothing was stored.
std::optional<double> delayOf(const char* sink, const PcmBuffer& sound, const LastLoud& loud) {
    const auto former = rows();
    const std::jthread player([&] { play(sink, sound); });
    if (!FileTranscriber::waitUntil([&] { return rows() > former; }, 60s))
        return std::nullopt;
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - loud.at()).count();
}

void print(const char* side, std::vector<double> delays) {
    std::ranges::sort(delays);
    if (!delays.empty())
        std::printf("end of speech to row  %.2f s median, %.2f s worst of %zu utterances  %s\n",
                    delays[delays.size() / 2], delays.back(), delays.size(), side);
}

} // namespace

int run() {
    const test::TemporaryHome home;
    const test::ScopedFakeClock time;
    MnemoraStore store(std::make_unique<test::FakeEmbedder>());
    const auto loop = std::make_shared<desktop::QtMainLoop>();
    const auto input = std::make_shared<ObservedInput>(loop);
    const auto output = std::make_shared<ObservedOutput>();
    const ScopedDesktopServices services({.mainLoop = loop,
                                          .audioInput = input,
                                          .systemAudio = output,
                                          .speech = std::make_shared<EngineSpeechService>(
                                              SpeechEngineSettings::ofInstallation(), loop)});
    const auto recorder = std::make_shared<MeetingRecorder>(store);
    recorder->start();
    // Loads the weights.
    const auto people = test::peopleReading();
    if (people.empty() || !delayOf("MicFeed", people[0].sound, input->loud))
        return EXIT_FAILURE;
    std::vector<double> you;
    std::vector<double> them;
    for (const auto& sample : people) {
        if (test::endOfSpeech(sample.sound) > 7)
            continue;
        time.clock->moment += 100; // the same words are kept again
        if (const auto delay = delayOf("Speakers", sample.sound, output->loud))
            them.push_back(*delay);
        time.clock->moment += 100;
        if (const auto delay = delayOf("MicFeed", sample.sound, input->loud))
            you.push_back(*delay);
    }
    recorder->stop();
    print("Them", them);
    print("You", you);
    return EXIT_SUCCESS;
}

} // namespace mnemora::bench

int main(int count, char** words) {
    const QCoreApplication application(count, words);
    return mnemora::bench::run();
}
