#pragma once
// The networks on sherpa-onnx (its C API, https://k2-fsa.github.io/sherpa/onnx/): Moonshine base
// for English words, Silero's for voices.

#include "Engines/Speech/SpeechModels.h"
#include "Support/Outcome.h"

#include <filesystem>
#include <vector>

namespace mnemora::engines::speech {

/// Detectors that lie ready. They read their weights from a file, so none can be made later: two
/// streams record, and as many may still finish what they heard before.
inline constexpr std::size_t detectorCount = 4;

struct SpeechModels {
    std::unique_ptr<Transcriber> transcriber;
    std::vector<std::unique_ptr<VoiceDetector>> detectors;
};

/// Checks the model's files in `folder` against their manifest and loads them, each on one thread.
/// Fails with one line when a file or the library is missing or damaged.
[[nodiscard]] Outcome<std::shared_ptr<SpeechModels>>
loadSherpaModels(const std::filesystem::path& folder);

} // namespace mnemora::engines::speech
