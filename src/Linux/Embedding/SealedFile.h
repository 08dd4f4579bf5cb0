#pragma once
// A cache file that is whole or absent: it is published by a rename, ends in the digest of its
// content, and names what it was made from. Whoever reads a torn, damaged or outdated one sees
// none and makes it anew.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

namespace mnemora::embedding {

/// The content of a sealed file, mapped read-only for the life of this object.
class SealedFile {
  public:
    /// Maps the file at `path`. Absent when it isn't there, belongs to somebody else, was made for
    /// another `key`, or its content isn't what was written.
    [[nodiscard]] static std::optional<SealedFile> open(const std::filesystem::path& path,
                                                        std::uint64_t key);
    /// Writes the file, 0600, in place of an older one. The folder has to exist. False when the
    /// disk is full or refuses; an older file is still there then.
    [[nodiscard]] static bool write(const std::filesystem::path& path, std::uint64_t key,
                                    std::string_view content);

    [[nodiscard]] std::span<const std::byte> content() const;
    /// Gives the pages back that the content occupies in memory; they return when read.
    void dropPages() const;

  private:
    struct Unmap {
        std::size_t size;
        void operator()(void* address) const;
    };
    using Mapping = std::unique_ptr<void, Unmap>;

    explicit SealedFile(Mapping mapping) : mapping_(std::move(mapping)) {}

    Mapping mapping_;
};

} // namespace mnemora::embedding
