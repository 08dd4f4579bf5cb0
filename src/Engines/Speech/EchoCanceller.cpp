#include "Engines/Speech/EchoCanceller.h"

#include "Engines/Speech/SpeechModels.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <webrtc/common.h>
#include <webrtc/modules/audio_processing/include/audio_processing.h>
#include <webrtc/modules/interface/module_common_types.h>

namespace mnemora::engines::speech {
namespace {

constexpr std::size_t frameSize = 160; // 10 ms, as the library wants it
/// How far the two sides' buffers may be apart.
constexpr std::size_t patience = 3200; // 0.2 s
/// A room falls silent within this time.
constexpr std::int64_t echoLasts = 16000;
constexpr float silence = 1e-4F;
/// The room is known once this much of what was heard while they spoke has gone, over two seconds.
/// What comes out before is neither the echo nor free of it, and couldn't be told from somebody's
/// words. An echo that is no louder than the room's noise never gets there, and needs nothing.
constexpr double enoughGone = 6.3; // 8 dB
constexpr double forgetting = 1.0 / 200;
constexpr std::int64_t leastLearning = 5 * 16000; // a lucky second isn't a room
/// From then on a tenth of a second of which this much has gone held nobody's words; its rest would
/// be misheard as some.
constexpr double mostlyGone = 4; // 6 dB
constexpr double quickForgetting = 0.15;
constexpr float aloud = 0.02F;
constexpr int rate = 16000;

std::array<float, frameSize> taken(std::deque<float>& samples) {
    std::array<float, frameSize> frame{};
    const auto end = samples.begin() + frameSize;
    std::copy(samples.begin(), end, frame.begin());
    samples.erase(samples.begin(), end);
    return frame;
}

double power(std::span<const float> frame) {
    double sum = 0;
    for (const float sample : frame)
        sum += static_cast<double>(sample) * static_cast<double>(sample);
    return sum;
}

} // namespace

struct EchoCanceller::Library {
    std::unique_ptr<webrtc::AudioProcessing> processing;
    webrtc::StreamConfig format{rate, 1};

    static std::unique_ptr<Library> create() {
        webrtc::Config config;
        config.Set(new webrtc::ExtendedFilter(true)); // 128 ms of reflections; taken over
        config.Set(new webrtc::DelayAgnostic(true));
        auto library = std::make_unique<Library>();
        library->processing.reset(webrtc::AudioProcessing::Create(config));
        if (!library->processing)
            return nullptr;
        auto* canceller = library->processing->echo_cancellation();
        canceller->set_suppression_level(webrtc::EchoCancellation::kModerateSuppression);
        canceller->Enable(true);
        return library;
    }

    void analyze(std::span<float> frame) {
        float* channel = frame.data();
        processing->ProcessReverseStream(&channel, format, format, &channel);
    }
    void process(std::span<float> frame) {
        float* channel = frame.data();
        processing->set_stream_delay_ms(0); // asked for, and not used with DelayAgnostic
        processing->ProcessStream(&channel, format, format, &channel);
    }
};

EchoCanceller::EchoCanceller() : library_(Library::create()) {}
EchoCanceller::~EchoCanceller() = default;

void EchoCanceller::played(std::span<const float> sound) {
    played_.insert(played_.end(), sound.begin(), sound.end());
    // A microphone that has stopped mustn't pile it up.
    if (played_.size() > heard_.size() + 2 * patience)
        played_.erase(played_.begin(),
                      played_.end() - static_cast<std::ptrdiff_t>(heard_.size() + patience));
}

std::vector<float> EchoCanceller::cleaned(std::span<const float> sound) {
    heard_.insert(heard_.end(), sound.begin(), sound.end());
    std::vector<float> done;
    while (heard_.size() >= frameSize) {
        const bool hasPlayed = played_.size() >= frameSize;
        if (!hasPlayed && heard_.size() < patience)
            break;
        auto frame = taken(heard_);
        clean(frame, hasPlayed);
        done.insert(done.end(), frame.begin(), frame.end());
    }
    return done;
}

void EchoCanceller::clean(std::span<float> frame, bool hasPlayed) {
    bool isAloud = false;
    if (hasPlayed) {
        auto reference = taken(played_);
        const bool isSilent =
            std::ranges::all_of(reference, [](float sample) { return std::abs(sample) < silence; });
        silentFor_ = isSilent ? silentFor_ + static_cast<std::int64_t>(frameSize) : 0;
        isAloud = std::ranges::any_of(reference, [](float sample) { return sample > aloud; });
        if (library_ && silentFor_ < echoLasts)
            library_->analyze(reference);
    }
    if (!library_ || !hasPlayed || silentFor_ >= echoLasts)
        return;
    std::array<float, frameSize> clean{};
    std::ranges::copy(frame, clean.begin());
    library_->process(clean);
    if (isAloud)
        learn(frame, clean);
    heardNow_.add(power(frame), quickForgetting);
    leftNow_.add(power(clean), quickForgetting);
    if (!knowsRoom_)
        return;
    if (heardNow_.value > mostlyGone * leftNow_.value)
        clean.fill(0);
    std::ranges::copy(clean, frame.begin());
}

void EchoCanceller::learn(std::span<const float> heard, std::span<const float> left) {
    heardAloud_.add(power(heard), forgetting);
    leftAloud_.add(power(left), forgetting);
    aloudFor_ += static_cast<std::int64_t>(frameSize);
    knowsRoom_ = knowsRoom_ ||
                 (aloudFor_ > leastLearning && heardAloud_.value > enoughGone * leftAloud_.value);
}

std::vector<float> EchoCanceller::finish() {
    std::vector<float> rest(heard_.begin(), heard_.end());
    heard_.clear();
    return rest;
}

} // namespace mnemora::engines::speech
