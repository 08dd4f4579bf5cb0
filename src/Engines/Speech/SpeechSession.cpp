#include "Engines/Speech/SpeechSession.h"

#include "Engines/Speech/EchoWords.h"

#include <algorithm>
#include <utility>

namespace mnemora::engines::speech {
namespace {

// In samples at 16 kHz.
/// From the server's hands through loudspeakers, air, microphone and back; wireless ones included.
constexpr std::int64_t longestWay = 11200; // 0.7 s
/// The two sides' buffers needn't arrive in the order in which they were filled.
constexpr std::int64_t disorder = 3200; // 0.2 s

bool isBlank(const std::string& text) {
    return text.find_first_not_of(" \t\n") == std::string::npos;
}

} // namespace

SpeechSession::SpeechSession(SpeechModels& models, Send send)
    : models_(models), send_(std::move(send)) {}

bool SpeechSession::take(const Frame& frame) {
    if (frame.kind == FrameKind::sound)
        return takeSound(frame) && parentIsThere_;
    const auto number = decodeStream(frame.payload);
    if (!number)
        return false;
    if (frame.kind == FrameKind::closeStream) {
        streams_.erase(*number);
        return true;
    }
    return frame.kind == FrameKind::endOfSound && endSound(*number) && parentIsThere_;
}

bool SpeechSession::takeSound(const Frame& frame) {
    const auto piece = decodeSound(frame.payload, samples_);
    if (!piece)
        return false;
    auto* stream = streamOf(piece->stream);
    if (stream == nullptr)
        return true;
    stream->origin = piece->origin;
    auto sound = stream->resampler.convert(*piece);
    cancelEcho(*stream, sound);
    stream->marks.add(++pieces_,
                      stream->cutter.position() + static_cast<std::int64_t>(sound.size()));
    stream->cutter.append(sound);
    const bool isSpeaking = stream->cutter.isSpeaking();
    if (isSpeaking && !stream->wasSpeaking)
        parentIsThere_ = send_(FrameKind::speaking, encodeStream(piece->stream)) && parentIsThere_;
    stream->wasSpeaking = isSpeaking;
    return true;
}

void SpeechSession::cancelEcho(Stream& stream, std::vector<float>& sound) {
    if (stream.origin == SoundOrigin::loudspeakers)
        for (const auto& [number, other] : streams_)
            if (other->canceller)
                other->canceller->played(sound);
    if (stream.origin != SoundOrigin::microphone)
        return;
    const bool isNearLoudspeakers = std::ranges::any_of(streams_, [](const auto& other) {
        return other.second->origin == SoundOrigin::loudspeakers;
    });
    if (!stream.canceller && isNearLoudspeakers)
        stream.canceller = std::make_unique<EchoCanceller>();
    if (!stream.canceller)
        return;
    auto clean = stream.canceller->cleaned(sound);
    if (!isNearLoudspeakers) { // any more: headphones were plugged in
        const auto rest = stream.canceller->finish();
        clean.insert(clean.end(), rest.begin(), rest.end());
        stream.canceller.reset();
    }
    sound = std::move(clean);
}

bool SpeechSession::endSound(StreamNumber number) {
    if (const auto found = streams_.find(number); found != streams_.end()) {
        auto& stream = *found->second;
        auto rest = stream.resampler.finish();
        cancelEcho(stream, rest);
        stream.cutter.append(rest);
        if (stream.canceller)
            stream.cutter.append(stream.canceller->finish());
        stream.cutter.finish();
        streams_.erase(found);
    }
    return send_(FrameKind::soundEnded, encodeStream(number));
}

/// Null when more streams are open than there are detectors.
SpeechSession::Stream* SpeechSession::streamOf(StreamNumber number) {
    if (const auto found = streams_.find(number); found != streams_.end())
        return found->second.get();
    const auto detector = freeDetector();
    if (!detector)
        return nullptr;
    auto& voices = *models_.detectors[*detector];
    voices.reset();
    const auto sink = [this, number](std::int64_t from, std::span<const float> sound) {
        recognize(number, from, sound);
    };
    auto stream = std::unique_ptr<Stream>(new Stream{*detector, {}, {voices, sink}});
    return streams_.emplace(number, std::move(stream)).first->second.get();
}

std::optional<std::size_t> SpeechSession::freeDetector() const {
    for (std::size_t index = 0; index < models_.detectors.size(); ++index)
        if (std::ranges::none_of(
                streams_, [&](const auto& stream) { return stream.second->detector == index; }))
            return index;
    return std::nullopt;
}

void SpeechSession::recognize(StreamNumber number, std::int64_t from,
                              std::span<const float> sound) {
    auto text = models_.transcriber->transcribe(sound);
    const auto& stream = *streams_.at(number);
    if (stream.origin == SoundOrigin::microphone && !isBlank(text))
        text = withoutEcho(
            text, playedMeanwhile(stream, from, from + static_cast<std::int64_t>(sound.size())));
    if (isBlank(text))
        return;
    const double start = static_cast<double>(from) / sampleRate;
    const double length = static_cast<double>(sound.size()) / sampleRate;
    const Utterance utterance{number, start, start + length, text};
    parentIsThere_ = send_(FrameKind::utterance, encodeUtterance(utterance)) && parentIsThere_;
}

/// The words that came out of loudspeakers while the microphone's stretch was heard.
std::string SpeechSession::playedMeanwhile(const Stream& microphone, std::int64_t from,
                                           std::int64_t to) const {
    std::string words;
    for (const auto& [number, stream] : streams_) {
        if (stream->origin != SoundOrigin::loudspeakers)
            continue;
        const auto begin = stream->marks.positionAt(microphone.marks.timeOf(from)) - longestWay;
        const auto end = stream->marks.positionAt(microphone.marks.timeOf(to)) + disorder;
        if (stream->cutter.hasHeardSpeechSince(begin))
            words += models_.transcriber->transcribe(stream->cutter.remembered(begin, end)) + " ";
    }
    return words;
}

} // namespace mnemora::engines::speech
