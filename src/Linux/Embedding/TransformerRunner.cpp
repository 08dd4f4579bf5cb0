#include "Linux/Embedding/TransformerRunner.h"

#include "Linux/Embedding/RuntimePages.h"
#include "Linux/Embedding/SealedFile.h"

#include <malloc.h>
#include <openvino/openvino.hpp>
#include <sstream>
#include <xxhash.h>

namespace mnemora::embedding {
namespace {

using namespace std::chrono_literals;

constexpr const char* device = "CPU";
/// Longer texts need up to 20 MiB of working memory.
constexpr std::size_t shortLength = 64;
/// Texts that come closer together than this are one batch, such as the backfill.
constexpr auto batchPause = 100ms;
/// The weights have 8 bits; with activations quantised in groups of 16 the kernels take two thirds
/// of the time that single precision takes, and every vector stays within a cosine of 0.999 of the
/// publisher's. Groups of 32, the default, are faster still but miss that for the shortest texts.
constexpr std::uint64_t quantizationGroup = 16;

ov::AnyMap settings() {
    return {ov::hint::performance_mode(ov::hint::PerformanceMode::LATENCY),
            ov::hint::inference_precision(ov::element::f32),
            ov::hint::dynamic_quantization_group_size(quantizationGroup),
            ov::inference_num_threads(1),
            ov::num_streams(1),
            ov::hint::enable_cpu_pinning(false)};
}

/// Changes with everything that makes an older compiled network useless or wrong.
std::uint64_t cacheKey(ov::Core& core, const std::string& identity) {
    std::string all = identity + '\n' + ov::get_openvino_version().buildNumber + '\n' +
                      core.get_property(device, ov::device::full_name);
    for (const auto& capability : core.get_property(device, ov::device::capabilities))
        all += '\n' + capability;
    for (const auto& [name, value] : settings())
        all += '\n' + name + '=' + value.as<std::string>();
    return XXH3_64bits(all.data(), all.size());
}

ov::CompiledModel import(ov::Core& core, const SealedFile& file) {
    const auto content = file.content();
    // The runtime reads it only; its tensors know no read-only memory.
    auto* data = const_cast<std::byte*>(content.data());
    return core.import_model(ov::Tensor(ov::element::u8, {content.size()}, data), device,
                             settings());
}

ov::CompiledModel compile(ov::Core& core, const std::filesystem::path& path) {
    return core.compile_model(core.read_model(path.string()), device, settings());
}

bool publish(ov::CompiledModel& network, const std::filesystem::path& path, std::uint64_t key) {
    std::ostringstream stream;
    network.export_model(stream);
    return stream.good() && SealedFile::write(path, key, stream.view());
}

bool hasInputs(const ov::CompiledModel& network) {
    for (const auto& input : network.inputs()) {
        const auto& name = input.get_any_name();
        if ((name != "input_ids" && name != "attention_mask" && name != "token_type_ids") ||
            input.get_element_type() != ov::element::i64)
            return false;
    }
    return true;
}

} // namespace

struct TransformerRunner::Network {
    ov::Core core;
    std::optional<SealedFile> file; // the weights lie in it
    ov::CompiledModel compiled;
    ov::InferRequest request;
    std::int64_t width = 0;

    [[nodiscard]] bool importFrom(const std::filesystem::path& path, std::uint64_t key) {
        file = SealedFile::open(path, key);
        if (file)
            compiled = import(core, *file);
        return file.has_value();
    }

    void load(const ModelFiles& files) {
        const auto key = cacheKey(core, files.identity);
        if (!files.compiled.empty() && importFrom(files.compiled, key))
            return;
        compiled = compile(core, files.model);
        // Taken from the cache, the weights are shared pages of a file instead of our own memory.
        if (!files.compiled.empty() && publish(compiled, files.compiled, key))
            (void)importFrom(files.compiled, key);
    }
};

TransformerRunner::TransformerRunner(std::unique_ptr<Network> network)
    : network_(std::move(network)) {}

TransformerRunner::~TransformerRunner() = default;

std::unique_ptr<TransformerRunner> TransformerRunner::create(const ModelFiles& files) {
    auto network = std::make_unique<Network>();
    network->load(files);
    if (!hasInputs(network->compiled) || network->compiled.outputs().size() != 1)
        return nullptr;
    const auto shape = network->compiled.output().get_partial_shape();
    if (shape.rank() != 3 || shape[2] != files.dimension ||
        network->compiled.output().get_element_type() != ov::element::f32)
        return nullptr;
    network->width = files.dimension;
    network->request = network->compiled.create_infer_request();
    return std::unique_ptr<TransformerRunner>(new TransformerRunner(std::move(network)));
}

int TransformerRunner::dimension() const {
    return static_cast<int>(network_->width);
}

std::span<const float> TransformerRunner::run(std::span<const std::int64_t> ids,
                                              std::size_t length) {
    const bool alone = std::chrono::steady_clock::now() - lastRun_ > batchPause;
    for (const auto& input : network_->compiled.inputs()) {
        ov::Tensor tensor(ov::element::i64, {1, ids.size()});
        auto* values = tensor.data<std::int64_t>();
        const auto& name = input.get_any_name();
        if (name == "input_ids")
            std::copy(ids.begin(), ids.end(), values);
        else
            std::fill_n(values, ids.size(), 0);
        if (name == "attention_mask")
            std::fill_n(values, length, 1);
        network_->request.set_tensor(input, tensor);
    }
    network_->request.infer();
    const auto output = network_->request.get_output_tensor();
    const auto* states = output.data<const float>();
    states_.assign(states, states + length * static_cast<std::size_t>(dimension()));
    holdsMuch_ = holdsMuch_ || ids.size() > shortLength;
    if (alone)
        giveMemoryBack();
    lastRun_ = std::chrono::steady_clock::now();
    return states_;
}

// Between two observations lie seconds, in which the working memory of a long text, the pages of
// weights and what of the runtime only loading needs would lie idle.
void TransformerRunner::giveMemoryBack() {
    if (network_->file)
        network_->file->dropPages();
    dropRuntimePages();
    if (!holdsMuch_)
        return;
    network_->compiled.release_memory();
    malloc_trim(0);
    holdsMuch_ = false;
}

} // namespace mnemora::embedding
