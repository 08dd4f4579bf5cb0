#pragma once
// The list of files that a model or an inference runtime consists of, written at build time and
// lying beside them. It tells, without opening anything large, whether all of them are there, and
// at first use whether their content is what was built.
//
// The format is one item a line: "mnemora-manifest 1" first, then in any order
//     property <name> <value>
//     file <XXH3-64, 16 hexadecimal digits> <size in bytes> <name>

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace mnemora {

/// A parsed manifest. A plain value; every operation may be called on any thread and none throws
/// on anything that a damaged disk can show.
struct ModelManifest {
    struct File {
        std::string name; // a plain name in the manifest's folder, never a path
        std::uint64_t size = 0;
        std::uint64_t digest = 0; // XXH3-64 (https://xxhash.com), seed 0

        bool operator==(const File&) const = default;
    };

    std::map<std::string, std::string> properties;
    std::vector<File> files;

    bool operator==(const ModelManifest&) const = default;

    /// Absent unless every line is understood and at least one file is listed.
    [[nodiscard]] static std::optional<ModelManifest> parse(std::string_view text);
    /// Parses the file at `path`; absent when it can't be read or is larger than 64 KiB.
    [[nodiscard]] static std::optional<ModelManifest> read(const std::filesystem::path& path);
    /// What `parse` reads.
    [[nodiscard]] std::string text() const;

    /// The property as a number from 0 to INT_MAX; absent when missing or no such number.
    [[nodiscard]] std::optional<int> number(const std::string& property) const;
    /// True when the file is listed.
    [[nodiscard]] bool lists(std::string_view name) const;

    /// True when every file lies in `folder` (links are followed) with its recorded size. Costs one
    /// stat a file.
    [[nodiscard]] bool sizesMatch(const std::filesystem::path& folder) const;
    /// True when the content of every file in `folder` has its recorded size and digest. Reads them
    /// whole: once, at first use.
    [[nodiscard]] bool digestsMatch(const std::filesystem::path& folder) const;

    /// Describes the file at `path` for a manifest; absent when it can't be read.
    [[nodiscard]] static std::optional<File> describe(const std::filesystem::path& path);
};

} // namespace mnemora
