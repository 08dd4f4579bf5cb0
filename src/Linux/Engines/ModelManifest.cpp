#include "Linux/Engines/ModelManifest.h"

#include <array>
#include <charconv>
#include <climits>
#include <cstdio>
#include <fstream>
#include <memory>
#include <sys/stat.h>
#include <xxhash.h>

namespace mnemora {
namespace {

constexpr std::string_view firstLine = "mnemora-manifest 1";
constexpr std::size_t maxManifestSize = 64 * 1024;
constexpr std::size_t readSize = 256 * 1024;

/// Cuts `rest` at the first `separator` and returns what stood before it.
std::string_view next(std::string_view& rest, char separator) {
    const auto end = rest.find(separator);
    const auto item = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    return item;
}

template <class Number>
std::optional<Number> numberFrom(std::string_view text, int base = 10) {
    Number value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

bool isPlainName(std::string_view name) {
    return !name.empty() && name != "." && name != ".." &&
           name.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
}

std::optional<ModelManifest::File> fileFrom(std::string_view line) {
    const auto hex = next(line, ' ');
    const auto digest = numberFrom<std::uint64_t>(hex, 16);
    const auto size = numberFrom<std::uint64_t>(next(line, ' '));
    if (hex.size() != 16 || !digest || !size || !isPlainName(line))
        return std::nullopt;
    return ModelManifest::File{.name = std::string(line), .size = *size, .digest = *digest};
}

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

struct FreeState {
    void operator()(XXH3_state_t* state) const { XXH3_freeState(state); }
};

} // namespace

std::optional<ModelManifest> ModelManifest::parse(std::string_view text) {
    if (next(text, '\n') != firstLine)
        return std::nullopt;
    ModelManifest manifest;
    while (!text.empty()) {
        auto line = next(text, '\n');
        const auto item = next(line, ' ');
        if (item == "property") {
            const auto name = next(line, ' ');
            manifest.properties[std::string(name)] = line;
        } else if (auto file = item == "file" ? fileFrom(line) : std::nullopt) {
            manifest.files.push_back(std::move(*file));
        } else {
            return std::nullopt;
        }
    }
    if (manifest.files.empty())
        return std::nullopt;
    return manifest;
}

std::optional<ModelManifest> ModelManifest::read(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::string text(maxManifestSize + 1, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(file.gcount()));
    if (text.size() > maxManifestSize)
        return std::nullopt;
    return parse(text);
}

std::string ModelManifest::text() const {
    std::string text(firstLine);
    text += '\n';
    for (const auto& [name, value] : properties)
        text += "property " + name + " " + value + "\n";
    for (const auto& file : files) {
        std::array<char, 17> hex{};
        std::snprintf(hex.data(), hex.size(), "%016llx",
                      static_cast<unsigned long long>(file.digest));
        text += "file " + std::string(hex.data()) + " " + std::to_string(file.size) + " " +
                file.name + "\n";
    }
    return text;
}

std::optional<int> ModelManifest::number(const std::string& property) const {
    const auto entry = properties.find(property);
    const auto value = entry == properties.end() ? std::nullopt : numberFrom<int>(entry->second);
    return value && *value >= 0 ? value : std::nullopt;
}

bool ModelManifest::lists(std::string_view name) const {
    for (const auto& file : files)
        if (file.name == name)
            return true;
    return false;
}

bool ModelManifest::sizesMatch(const std::filesystem::path& folder) const {
    for (const auto& file : files) {
        struct stat info {};
        if (stat((folder / file.name).c_str(), &info) != 0 || !S_ISREG(info.st_mode) ||
            static_cast<std::uint64_t>(info.st_size) != file.size)
            return false;
    }
    return true;
}

bool ModelManifest::digestsMatch(const std::filesystem::path& folder) const {
    for (const auto& file : files)
        if (describe(folder / file.name) != file)
            return false;
    return true;
}

std::optional<ModelManifest::File> ModelManifest::describe(const std::filesystem::path& path) {
    const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(path.c_str(), "rbe"));
    const std::unique_ptr<XXH3_state_t, FreeState> state(XXH3_createState());
    if (!file || !state || XXH3_64bits_reset(state.get()) != XXH_OK)
        return std::nullopt;
    // Blocks of our own size; stdio's buffer would only copy them once more.
    std::setvbuf(file.get(), nullptr, _IONBF, 0);
    const auto block = std::make_unique<std::array<char, readSize>>();
    File description{.name = path.filename().string(), .size = 0, .digest = 0};
    while (const auto count = std::fread(block->data(), 1, block->size(), file.get())) {
        XXH3_64bits_update(state.get(), block->data(), count);
        description.size += count;
    }
    if (std::ferror(file.get()) != 0)
        return std::nullopt;
    description.digest = XXH3_64bits_digest(state.get());
    return description;
}

} // namespace mnemora
