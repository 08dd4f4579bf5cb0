#include "Tools/FileTranscriber.h"

#include "Meetings/SpeechStream.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>
#include <algorithm>
#include <sndfile.h>

namespace mnemora {
namespace {

using std::chrono::steady_clock;

// As many frames as the microphone's tap hands over at a time.
constexpr std::size_t framesPerBuffer = 2048;
// Longer than the silence that ends an utterance.
constexpr double silenceAfter = 1;
constexpr auto longestWait = std::chrono::minutes(10);

struct CloseFile {
    void operator()(SNDFILE* file) const { sf_close(file); }
};

std::size_t samplesIn(const PcmBuffer& sound, double seconds) {
    return static_cast<std::size_t>(sound.sampleRate * seconds) *
           static_cast<std::size_t>(sound.channels);
}

/// Silence where the sound has ended.
PcmBuffer part(const PcmBuffer& sound, std::size_t at, std::size_t count) {
    PcmBuffer buffer{.sampleRate = sound.sampleRate,
                     .channels = sound.channels,
                     .samples = {},
                     .origin = sound.origin};
    const auto begin = std::min(at, sound.samples.size());
    const auto end = std::min(at + count, sound.samples.size());
    buffer.samples.assign(sound.samples.begin() + static_cast<std::ptrdiff_t>(begin),
                          sound.samples.begin() + static_cast<std::ptrdiff_t>(end));
    buffer.samples.resize(count);
    return buffer;
}

} // namespace

std::optional<PcmBuffer> readSoundFile(const std::string& path) {
    SF_INFO info{};
    const std::unique_ptr<SNDFILE, CloseFile> file(sf_open(path.c_str(), SFM_READ, &info));
    if (!file)
        return std::nullopt;
    PcmBuffer sound{.sampleRate = static_cast<double>(info.samplerate),
                    .channels = info.channels,
                    .samples = {}};
    sound.samples.resize(static_cast<std::size_t>(info.frames) *
                         static_cast<std::size_t>(info.channels));
    const auto frames = sf_readf_float(file.get(), sound.samples.data(), info.frames);
    sound.samples.resize(static_cast<std::size_t>(std::max<sf_count_t>(frames, 0)) *
                         static_cast<std::size_t>(info.channels));
    return sound;
}

FileTranscriber::FileTranscriber(SpeechEngineSettings settings)
    : loop_(std::make_shared<desktop::QtMainLoop>()) {
    // A file at full speed comes faster than it is recognised.
    settings.maxWaitingBytes = std::size_t{4} * 1024 * 1024 * 1024;
    settings.observer = [this](const engines::Utterance& utterance) { last_ = utterance; };
    service_ = std::make_shared<EngineSpeechService>(std::move(settings), loop_);
    installed_.emplace(DesktopServices{.mainLoop = loop_, .speech = service_});
}

bool FileTranscriber::waitUntil(const std::function<bool()>& condition,
                                std::chrono::milliseconds bound) {
    const auto end = steady_clock::now() + bound;
    // Wakes the loop where nothing else does before the bound.
    QTimer tick;
    tick.start(50);
    while (!condition()) {
        if (steady_clock::now() > end)
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}

bool FileTranscriber::transcribe(const PcmBuffer& sound, Pace pace,
                                 const SegmentHandler& onSegment) {
    const auto recognizer = service_->recognizer("en-US");
    if (!recognizer->isAvailable())
        return false;
    const auto begin = steady_clock::now();
    const auto stream = std::make_shared<SpeechStream>(
        "file", "en-US", [&](const std::string&, const std::string& text) {
            const std::chrono::duration<double> passed = steady_clock::now() - begin;
            onSegment({last_.start, last_.end, text, passed.count()});
        });
    stream->start();
    feed(sound, pace, *stream);
    // Not by stop(): that would make one segment of all that is still to be recognised.
    return awaitEngine();
}

std::optional<FileTranscriber::BothSides> FileTranscriber::transcribeCall(const PcmBuffer& you,
                                                                          const PcmBuffer& them) {
    if (!service_->recognizer("en-US")->isAvailable())
        return std::nullopt;
    BothSides said;
    const auto hear = [&](std::vector<HeardSegment>& side) {
        auto stream = std::make_shared<SpeechStream>(
            "", "en-US", [this, &side](const std::string&, const std::string& text) {
                side.push_back({last_.start, last_.end, text, 0});
            });
        stream->start();
        return stream;
    };
    const auto mine = hear(said.you);
    const auto theirs = hear(said.them);
    const auto total = you.samples.size() + samplesIn(you, silenceAfter);
    // A buffer's time at 48 kHz.
    const auto step = samplesIn(you, framesPerBuffer / 48000.0);
    for (std::size_t at = 0; at < total; at += step) {
        theirs->append(part(them, at, step));
        mine->append(part(you, at, step));
    }
    if (!awaitEngine())
        return std::nullopt;
    return said;
}

void FileTranscriber::feed(const PcmBuffer& sound, Pace pace, SpeechStream& stream) {
    const auto total = sound.samples.size() + samplesIn(sound, silenceAfter);
    const auto begin = steady_clock::now();
    const auto step = framesPerBuffer * static_cast<std::size_t>(sound.channels);
    for (std::size_t at = 0; at < total; at += step) {
        const auto end = std::min(at + step, total);
        const double due =
            static_cast<double>(end) / (sound.sampleRate * static_cast<double>(sound.channels));
        if (pace == Pace::realTime)
            (void)waitUntil(
                [&] {
                    return std::chrono::duration<double>(steady_clock::now() - begin).count() >=
                           due;
                },
                longestWait);
        stream.append(part(sound, at, end - at));
    }
}

bool FileTranscriber::awaitEngine() {
    // The engine takes things in order, so the end of a stream without sound comes last.
    bool isDone = false;
    bool hasFailed = false;
    const auto recognizer = service_->recognizer("en-US");
    const auto task = recognizer->recognize({}, [&](const auto& result, const auto& error) {
        isDone = result.has_value();
        hasFailed = error.has_value();
    });
    task->endAudio();
    return waitUntil([&] { return isDone || hasFailed; }, longestWait) && !hasFailed;
}

} // namespace mnemora
