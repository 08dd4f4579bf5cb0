#include "Engines/Recognition/OpenVinoNetworks.h"

#include <exception>
#include <openvino/openvino.hpp>
#include <utility>

namespace mnemora::recognition {
namespace {

// The runtime compiles code for every shape that it meets, about four megabytes each time, and
// keeps up to this many pieces of each kind (5,000 unless told). Lines have 28 widths in all, so
// what is kept for them has an end. Every size of a display brings two new shapes to the detector,
// and a virtual machine's window may be dragged to hundreds; this is room for the two in use.
constexpr int mostDetectorCode = 128;
constexpr int mostReaderCode = 5000;

/// A network that maps planes of any width (and height) to scores.
class Network {
  public:
    Network(ov::Core& core, const std::shared_ptr<ov::Model>& model, int mostCode)
        : compiled_(core.compile_model(
              model, "CPU", ov::inference_num_threads(1), ov::num_streams(1),
              ov::hint::enable_cpu_pinning(false),
              ov::hint::performance_mode(ov::hint::PerformanceMode::LATENCY),
              // The plugin's own key, without a name in the runtime's public headers.
              std::pair<std::string, ov::Any>("CPU_RUNTIME_CACHE_CAPACITY", mostCode))),
          request_(compiled_.create_infer_request()) {}

    /// The scores, valid until the next run. Throws what OpenVINO throws.
    ov::Tensor run(const Planes& planes) {
        const ov::Shape shape{1, 3, static_cast<std::size_t>(planes.height),
                              static_cast<std::size_t>(planes.width)};
        // OpenVINO only reads from an input, but its tensor type knows no constness.
        auto* values = const_cast<float*>(planes.values.data());
        request_.set_input_tensor(ov::Tensor(ov::element::f32, shape, values));
        request_.infer();
        return request_.get_output_tensor();
    }

  private:
    ov::CompiledModel compiled_;
    ov::InferRequest request_;
};

std::span<const float> valuesOf(const ov::Tensor& tensor) {
    return {tensor.data<const float>(), tensor.get_size()};
}

class OpenVinoNetworks final : public TextNetworks {
  public:
    OpenVinoNetworks(Network detector, Network reader, Alphabet alphabet)
        : detector_(std::move(detector)), reader_(std::move(reader)),
          alphabet_(std::move(alphabet)) {}

    std::optional<std::vector<float>> detect(const Planes& planes) override {
        try {
            const auto scores = detector_.run(planes);
            const auto values = valuesOf(scores);
            if (values.size() != planes.values.size() / 3)
                return std::nullopt;
            return std::vector<float>(values.begin(), values.end());
        } catch (const std::exception&) {
            return std::nullopt;
        }
    }

    std::optional<Reading> read(const Planes& line) override {
        try {
            const auto scores = reader_.run(line);
            const auto shape = scores.get_shape();
            if (shape.size() != 3 || shape[0] != 1 || shape[2] != alphabet_.size())
                return std::nullopt;
            return readGreedily(valuesOf(scores), alphabet_);
        } catch (const std::exception&) {
            return std::nullopt;
        }
    }

  private:
    Network detector_;
    Network reader_;
    Alphabet alphabet_;
};

std::shared_ptr<TextNetworks> load(const std::string& detector, const std::string& reader) {
    ov::Core core;
    Network detectorNetwork(core, core.read_model(detector, ov::Tensor()), mostDetectorCode);
    const auto readerModel = core.read_model(reader, ov::Tensor());
    // The ONNX reader keeps a file's metadata under this name.
    Alphabet alphabet(readerModel->get_rt_info<std::string>("framework", "character"));
    Network readerNetwork(core, readerModel, mostReaderCode);
    return std::make_shared<OpenVinoNetworks>(std::move(detectorNetwork), std::move(readerNetwork),
                                              std::move(alphabet));
}

bool works(TextNetworks& networks) {
    const auto blank = [](int width, int height) {
        return Planes{width, height,
                      std::vector<float>(static_cast<std::size_t>(width * height * 3))};
    };
    return networks.detect(blank(32, 32)) && networks.read(blank(64, lineHeight));
}

} // namespace

Outcome<std::shared_ptr<TextNetworks>> loadOpenVinoNetworks(const std::string& detector,
                                                            const std::string& reader) {
    try {
        auto networks = load(detector, reader);
        if (!works(*networks))
            return Failure{"the networks don't have the expected shape"};
        return networks;
    } catch (const std::exception& error) {
        return Failure{error.what()};
    }
}

} // namespace mnemora::recognition
