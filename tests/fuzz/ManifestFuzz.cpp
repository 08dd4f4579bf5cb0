// Fuzz target: what a manifest's parser accepts is written and read back unchanged.

#include "Linux/Engines/ModelManifest.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using mnemora::ModelManifest;
    const auto manifest = ModelManifest::parse({reinterpret_cast<const char*>(data), size});
    if (manifest && ModelManifest::parse(manifest->text()) != manifest)
        std::abort();
    return 0;
}
