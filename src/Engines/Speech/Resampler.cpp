#include "Engines/Speech/Resampler.h"

#include <soxr.h>

namespace mnemora::engines::speech {
namespace {

struct DeleteConverter {
    void operator()(soxr_t converter) const { soxr_delete(converter); }
};
using Handle = std::unique_ptr<soxr, DeleteConverter>;

Handle makeConverter(double inputRate) {
    const auto format = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
    // The recogniser listens up to 8 kHz only; the next better recipe costs twice as much.
    const auto quality = soxr_quality_spec(SOXR_MQ, 0);
    const auto threads = soxr_runtime_spec(1);
    soxr_error_t error = nullptr;
    Handle handle(soxr_create(inputRate, sampleRate, 1, &error, &format, &quality, &threads));
    return error == nullptr ? std::move(handle) : nullptr;
}

// Downmixed first, so that only one channel is filtered.
std::vector<float> downmixed(const SoundPiece& piece) {
    const std::size_t channels = piece.channels;
    if (channels == 1)
        return {piece.samples.begin(), piece.samples.end()};
    std::vector<float> mono(piece.samples.size() / channels);
    for (std::size_t frame = 0; frame < mono.size(); ++frame) {
        float sum = 0;
        for (const float sample : piece.samples.subspan(frame * channels, channels))
            sum += sample;
        mono[frame] = sum / static_cast<float>(channels);
    }
    return mono;
}

} // namespace

struct Resampler::Converter {
    Handle handle;
    double ratio;

    /// With null samples: what is left in the filter.
    std::vector<float> run(const float* samples, std::size_t count) {
        if (!handle)
            return {};
        constexpr std::size_t longestFilter = 4096;
        std::vector<float> output(static_cast<std::size_t>(static_cast<double>(count) * ratio) +
                                  longestFilter);
        std::size_t taken = 0;
        std::size_t made = 0;
        soxr_process(handle.get(), samples, count, &taken, output.data(), output.size(), &made);
        output.resize(made);
        return output;
    }
};

Resampler::Resampler() = default;
Resampler::~Resampler() = default;

std::vector<float> Resampler::convert(const SoundPiece& piece) {
    std::vector<float> samples;
    if (piece.sampleRate != inputRate_) {
        samples = finish();
        inputRate_ = piece.sampleRate;
        if (inputRate_ != sampleRate)
            converter_ = std::make_unique<Converter>(
                Converter{makeConverter(inputRate_), sampleRate / inputRate_});
    }
    const auto mono = downmixed(piece);
    if (!converter_)
        samples.insert(samples.end(), mono.begin(), mono.end());
    else if (!mono.empty()) {
        const auto converted = converter_->run(mono.data(), mono.size());
        samples.insert(samples.end(), converted.begin(), converted.end());
    }
    return samples;
}

std::vector<float> Resampler::finish() {
    std::vector<float> rest;
    if (converter_)
        rest = converter_->run(nullptr, 0);
    converter_.reset();
    inputRate_ = 0;
    return rest;
}

} // namespace mnemora::engines::speech
