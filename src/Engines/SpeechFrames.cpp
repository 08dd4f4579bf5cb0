#include "Engines/SpeechFrames.h"

#include "Engines/FrameValues.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace mnemora::engines {
namespace {

constexpr double lowestRate = 8000;
constexpr double highestRate = 384000;
constexpr int mostChannels = 32;
constexpr auto lastOrigin = static_cast<std::uint32_t>(SoundOrigin::loudspeakers);

} // namespace

bool isPossibleSound(double sampleRate, int channels) {
    return sampleRate >= lowestRate && sampleRate <= highestRate && channels > 0 &&
           channels <= mostChannels;
}

std::string encodeSound(const SoundPiece& piece) {
    std::string bytes;
    bytes.reserve(20 + piece.samples.size_bytes());
    append(bytes, piece.stream);
    append(bytes, static_cast<std::uint32_t>(piece.origin));
    append(bytes, piece.channels);
    append(bytes, piece.sampleRate);
    bytes.append(reinterpret_cast<const char*>(piece.samples.data()), piece.samples.size_bytes());
    return bytes;
}

std::optional<SoundPiece> decodeSound(std::string_view payload, std::vector<float>& samples) {
    SoundPiece piece;
    std::uint32_t origin = 0;
    if (!take(payload, piece.stream) || !take(payload, origin) || origin > lastOrigin ||
        !take(payload, piece.channels) || !take(payload, piece.sampleRate) ||
        piece.channels > mostChannels ||
        !isPossibleSound(piece.sampleRate, static_cast<int>(piece.channels)) ||
        payload.size() % (sizeof(float) * piece.channels) != 0)
        return std::nullopt;
    samples.resize(payload.size() / sizeof(float));
    if (!samples.empty())
        std::memcpy(samples.data(), payload.data(), payload.size());
    for (float& sample : samples)
        sample = std::isfinite(sample) ? std::clamp(sample, -1.0F, 1.0F) : 0.0F;
    piece.samples = samples;
    piece.origin = static_cast<SoundOrigin>(origin);
    return piece;
}

std::string encodeStream(StreamNumber stream) {
    std::string bytes;
    append(bytes, stream);
    return bytes;
}

std::optional<StreamNumber> decodeStream(std::string_view payload) {
    StreamNumber stream = 0;
    if (!take(payload, stream) || !payload.empty())
        return std::nullopt;
    return stream;
}

std::string encodeUtterance(const Utterance& utterance) {
    std::string bytes;
    append(bytes, utterance.stream);
    append(bytes, utterance.start);
    append(bytes, utterance.end);
    return bytes + utterance.text;
}

std::optional<Utterance> decodeUtterance(std::string_view payload) {
    Utterance utterance;
    if (!take(payload, utterance.stream) || !take(payload, utterance.start) ||
        !take(payload, utterance.end) || !(utterance.start >= 0) ||
        !(utterance.end >= utterance.start) || !std::isfinite(utterance.end))
        return std::nullopt;
    utterance.text = payload;
    return utterance;
}

} // namespace mnemora::engines
