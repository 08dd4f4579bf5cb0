#pragma once
// PP-OCRv6 small (https://github.com/PaddlePaddle/PaddleOCR, Apache-2.0) on OpenVINO's CPU plugin,
// one thread, in the number format that the processor calculates fastest in.

#include "Engines/Recognition/TextNetworks.h"
#include "Support/Outcome.h"

#include <memory>
#include <string>

namespace mnemora::recognition {

/// Compiles both networks from the contents of their ONNX files and runs each once, so that every
/// file is read and every thread is started when this returns. Fails with a reason when the
/// content isn't a network of the expected shape.
[[nodiscard]] Outcome<std::shared_ptr<TextNetworks>>
loadOpenVinoNetworks(const std::string& detector, const std::string& reader);

} // namespace mnemora::recognition
