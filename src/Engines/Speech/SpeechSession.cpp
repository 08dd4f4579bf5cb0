#include "Engines/Speech/SpeechSession.h"

#include <algorithm>
#include <utility>

namespace mnemora::engines::speech {

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
    stream->cutter.append(stream->resampler.convert(*piece));
    const bool isSpeaking = stream->cutter.isSpeaking();
    if (isSpeaking && !stream->wasSpeaking)
        parentIsThere_ = send_(FrameKind::speaking, encodeStream(piece->stream)) && parentIsThere_;
    stream->wasSpeaking = isSpeaking;
    return true;
}

bool SpeechSession::endSound(StreamNumber number) {
    if (const auto found = streams_.find(number); found != streams_.end()) {
        found->second->cutter.append(found->second->resampler.finish());
        found->second->cutter.finish();
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
    const auto text = models_.transcriber->transcribe(sound);
    if (text.find_first_not_of(" \t\n") == std::string::npos)
        return;
    const double start = static_cast<double>(from) / sampleRate;
    const double length = static_cast<double>(sound.size()) / sampleRate;
    const Utterance utterance{number, start, start + length, text};
    parentIsThere_ = send_(FrameKind::utterance, encodeUtterance(utterance)) && parentIsThere_;
}

} // namespace mnemora::engines::speech
