#pragma once
// The content of a model's file, checked against the manifest that lies beside it.

#include "Support/Outcome.h"

#include <filesystem>
#include <string>

namespace mnemora::engines {

/// Reads the file `name` of the model in `folder` whole. Fails with one line when the manifest
/// doesn't list it, it can't be read, or its size or digest is another than the one recorded.
[[nodiscard]] Outcome<std::string> readModelFile(const std::filesystem::path& folder,
                                                 const std::string& name);

} // namespace mnemora::engines
