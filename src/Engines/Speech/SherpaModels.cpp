#include "Engines/Speech/SherpaModels.h"

#include "Engines/Speech/Resampler.h"
#include "Linux/Engines/ModelManifest.h"
#include "Support/Module.h"

#include <sherpa-onnx/c-api/c-api.h>

namespace mnemora::engines::speech {
namespace {

// Found through this program's run path, beside the inference runtime that it was built with.
constexpr auto* libraryName = "libsherpa-onnx-c-api.so";

/// The few functions that are used of the library, which is opened only here: text recognition
/// lives in the same program and needs nothing of it.
struct Library {
    explicit Library(Module opened) : module(std::move(opened)) {}

    template <class Function>
    bool find(Function*& function, const char* name) {
        function = module.function<Function>(name);
        return function != nullptr;
    }

    [[nodiscard]] bool findAll() {
        return find(createRecognizer, "SherpaOnnxCreateOfflineRecognizer") &&
               find(destroyRecognizer, "SherpaOnnxDestroyOfflineRecognizer") &&
               find(createStream, "SherpaOnnxCreateOfflineStream") &&
               find(destroyStream, "SherpaOnnxDestroyOfflineStream") &&
               find(acceptStream, "SherpaOnnxAcceptWaveformOffline") &&
               find(decodeStream, "SherpaOnnxDecodeOfflineStream") &&
               find(streamResult, "SherpaOnnxGetOfflineStreamResult") &&
               find(destroyResult, "SherpaOnnxDestroyOfflineRecognizerResult") &&
               find(createDetector, "SherpaOnnxCreateVoiceActivityDetector") &&
               find(destroyDetector, "SherpaOnnxDestroyVoiceActivityDetector") &&
               find(acceptDetector, "SherpaOnnxVoiceActivityDetectorAcceptWaveform") &&
               find(detected, "SherpaOnnxVoiceActivityDetectorDetected") &&
               find(isEmpty, "SherpaOnnxVoiceActivityDetectorEmpty") &&
               find(front, "SherpaOnnxVoiceActivityDetectorFront") &&
               find(pop, "SherpaOnnxVoiceActivityDetectorPop") &&
               find(destroySegment, "SherpaOnnxDestroySpeechSegment") &&
               find(flushDetector, "SherpaOnnxVoiceActivityDetectorFlush") &&
               find(resetDetector, "SherpaOnnxVoiceActivityDetectorReset");
    }

    Module module;
    decltype(SherpaOnnxCreateOfflineRecognizer)* createRecognizer = nullptr;
    decltype(SherpaOnnxDestroyOfflineRecognizer)* destroyRecognizer = nullptr;
    decltype(SherpaOnnxCreateOfflineStream)* createStream = nullptr;
    decltype(SherpaOnnxDestroyOfflineStream)* destroyStream = nullptr;
    decltype(SherpaOnnxAcceptWaveformOffline)* acceptStream = nullptr;
    decltype(SherpaOnnxDecodeOfflineStream)* decodeStream = nullptr;
    decltype(SherpaOnnxGetOfflineStreamResult)* streamResult = nullptr;
    decltype(SherpaOnnxDestroyOfflineRecognizerResult)* destroyResult = nullptr;
    decltype(SherpaOnnxCreateVoiceActivityDetector)* createDetector = nullptr;
    decltype(SherpaOnnxDestroyVoiceActivityDetector)* destroyDetector = nullptr;
    decltype(SherpaOnnxVoiceActivityDetectorAcceptWaveform)* acceptDetector = nullptr;
    decltype(SherpaOnnxVoiceActivityDetectorDetected)* detected = nullptr;
    decltype(SherpaOnnxVoiceActivityDetectorEmpty)* isEmpty = nullptr;
    decltype(SherpaOnnxVoiceActivityDetectorFront)* front = nullptr;
    decltype(SherpaOnnxVoiceActivityDetectorPop)* pop = nullptr;
    decltype(SherpaOnnxDestroySpeechSegment)* destroySegment = nullptr;
    decltype(SherpaOnnxVoiceActivityDetectorFlush)* flushDetector = nullptr;
    decltype(SherpaOnnxVoiceActivityDetectorReset)* resetDetector = nullptr;
};
using SharedLibrary = std::shared_ptr<const Library>;

/// A handle of the library with the function that destroys it.
template <class Handle>
using Owned = std::unique_ptr<const Handle, void (*)(const Handle*)>;

class SherpaTranscriber : public Transcriber {
  public:
    SherpaTranscriber(SharedLibrary library, Owned<SherpaOnnxOfflineRecognizer> recognizer)
        : library_(std::move(library)), recognizer_(std::move(recognizer)) {}

    std::string transcribe(std::span<const float> sound) override {
        const Owned<SherpaOnnxOfflineStream> stream(library_->createStream(recognizer_.get()),
                                                    library_->destroyStream);
        if (!stream)
            return {};
        library_->acceptStream(stream.get(), sampleRate, sound.data(),
                               static_cast<std::int32_t>(sound.size()));
        library_->decodeStream(recognizer_.get(), stream.get());
        const Owned<SherpaOnnxOfflineRecognizerResult> result(library_->streamResult(stream.get()),
                                                              library_->destroyResult);
        return result && result->text != nullptr ? result->text : "";
    }

  private:
    SharedLibrary library_;
    Owned<SherpaOnnxOfflineRecognizer> recognizer_;
};

class SherpaDetector : public VoiceDetector {
  public:
    SherpaDetector(SharedLibrary library, Owned<SherpaOnnxVoiceActivityDetector> detector)
        : library_(std::move(library)), detector_(std::move(detector)) {}

    void accept(std::span<const float> window) override {
        library_->acceptDetector(detector_.get(), window.data(),
                                 static_cast<std::int32_t>(window.size()));
    }

    bool isSpeaking() const override { return library_->detected(detector_.get()) != 0; }

    std::optional<Speech> next() override {
        if (library_->isEmpty(detector_.get()) != 0)
            return std::nullopt;
        const Owned<SherpaOnnxSpeechSegment> segment(library_->front(detector_.get()),
                                                     library_->destroySegment);
        library_->pop(detector_.get());
        return segment ? std::optional(Speech{segment->start, segment->n}) : std::nullopt;
    }

    void flush() override { library_->flushDetector(detector_.get()); }
    void reset() override { library_->resetDetector(detector_.get()); }

  private:
    SharedLibrary library_;
    Owned<SherpaOnnxVoiceActivityDetector> detector_;
};

std::unique_ptr<Transcriber> makeTranscriber(const SharedLibrary& library,
                                             const std::filesystem::path& folder) {
    const std::string encoder = folder / "encoder_model.onnx";
    const std::string decoder = folder / "decoder_model_merged.onnx";
    const std::string tokens = folder / "tokens.txt";
    SherpaOnnxOfflineRecognizerConfig config{};
    config.model_config.moonshine.encoder = encoder.c_str();
    config.model_config.moonshine.merged_decoder = decoder.c_str();
    config.model_config.tokens = tokens.c_str();
    config.model_config.num_threads = 1;
    Owned<SherpaOnnxOfflineRecognizer> recognizer(library->createRecognizer(&config),
                                                  library->destroyRecognizer);
    return recognizer ? std::make_unique<SherpaTranscriber>(library, std::move(recognizer))
                      : nullptr;
}

std::unique_ptr<VoiceDetector> makeDetector(const SharedLibrary& library,
                                            const std::filesystem::path& folder) {
    const std::string model = folder / "silero_vad.onnx";
    SherpaOnnxVadModelConfig config{};
    config.silero_vad.model = model.c_str();
    config.silero_vad.threshold = 0.5F;
    config.silero_vad.min_silence_duration = 0.5F;
    config.silero_vad.min_speech_duration = static_cast<float>(shortestSpeech) / sampleRate;
    config.silero_vad.window_size = windowSize;
    // Beyond this the library only listens for shorter silences; see UtteranceCutter for the cut.
    config.silero_vad.max_speech_duration = 15;
    config.sample_rate = sampleRate;
    config.num_threads = 1;
    constexpr float bufferSeconds = 60;
    Owned<SherpaOnnxVoiceActivityDetector> detector(library->createDetector(&config, bufferSeconds),
                                                    library->destroyDetector);
    return detector ? std::make_unique<SherpaDetector>(library, std::move(detector)) : nullptr;
}

/// Why the files can't be used; absent when they are what was built. The library itself ends the
/// process on some damaged ones.
std::optional<Failure> findFault(const std::filesystem::path& folder) {
    const auto manifest = ModelManifest::read(folder / "manifest");
    if (!manifest)
        return Failure{"the model's manifest is missing or damaged"};
    for (const char* name :
         {"encoder_model.onnx", "decoder_model_merged.onnx", "tokens.txt", "silero_vad.onnx"})
        if (!manifest->lists(name))
            return Failure{std::string("the model's manifest doesn't list ") + name};
    if (!manifest->digestsMatch(folder))
        return Failure{"a file of the model is missing or damaged"};
    return std::nullopt;
}

} // namespace

Outcome<std::shared_ptr<SpeechModels>> loadSherpaModels(const std::filesystem::path& folder) {
    if (auto fault = findFault(folder))
        return *std::move(fault);
    std::string reason;
    auto module = Module::open(libraryName, &reason);
    if (!module)
        return Failure{reason};
    const auto library = std::make_shared<Library>(*std::move(module));
    if (!library->findAll())
        return Failure{"the speech library is another than the one this was built for"};
    auto models = std::make_shared<SpeechModels>();
    models->transcriber = makeTranscriber(library, folder);
    for (std::size_t count = 0; count < detectorCount; ++count)
        models->detectors.push_back(makeDetector(library, folder));
    if (!models->transcriber || !models->detectors.back())
        return Failure{"the speech library can't load the model"};
    return models;
}

} // namespace mnemora::engines::speech
