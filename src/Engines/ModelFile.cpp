#include "Engines/ModelFile.h"

#include "Linux/Engines/ModelManifest.h"

#include <algorithm>
#include <fstream>
#include <xxhash.h>

namespace mnemora::engines {

Outcome<std::string> readModelFile(const std::filesystem::path& folder, const std::string& name) {
    const auto manifest = ModelManifest::read(folder / "manifest");
    if (!manifest)
        return Failure{"the model's manifest is missing or damaged"};
    const auto listed =
        std::find_if(manifest->files.begin(), manifest->files.end(),
                     [&](const ModelManifest::File& file) { return file.name == name; });
    if (listed == manifest->files.end())
        return Failure{"the model's manifest doesn't list " + name};
    std::ifstream file(folder / name, std::ios::binary);
    std::string content(listed->size, '\0');
    file.read(content.data(), static_cast<std::streamsize>(content.size()));
    if (!file)
        return Failure{name + " is missing or too short"};
    if (file.peek() != std::ifstream::traits_type::eof() ||
        XXH3_64bits(content.data(), content.size()) != listed->digest)
        return Failure{name + " is damaged"};
    return content;
}

} // namespace mnemora::engines
