#pragma once
// The string tables that Chromium-family browsers keep beside their executable
// (tools/grit/grit/format/data_pack.py of the Chromium sources describes versions 4 and 5).

#include "Linux/Desktop/PrivateWindowMarkers.h"
#include "Support/FileDescriptor.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace mnemora::desktop {

/// One language's strings, read from the file as they are asked for: a pack has two megabytes and
/// one string of it is wanted. A damaged file reads as one without some of its strings.
class LanguagePack {
  public:
    /// Absent when the file can't be read or isn't of this kind.
    [[nodiscard]] static std::optional<LanguagePack> open(const std::filesystem::path& file);

    /// The string with this number in valid UTF-8; absent when there is none, or when it is longer
    /// than any title.
    [[nodiscard]] std::optional<std::string> string(std::uint16_t number) const;
    /// The numbers of all strings, ascending.
    [[nodiscard]] std::vector<std::uint16_t> numbers() const;

  private:
    [[nodiscard]] bool readTable();
    [[nodiscard]] std::string bytes(std::size_t from, std::size_t length) const;
    template <class Integer>
    [[nodiscard]] Integer entry(std::size_t index, std::size_t offset) const;

    FileDescriptor file_;
    std::string table_; // an entry for each string and one more
    std::size_t count_ = 0;
    bool isUtf16_ = false;
};

/// The formats of private windows' accessible names in all packs of the folder. The string's
/// number changes with each release; the English pack tells which one it is.
[[nodiscard]] std::vector<TitleFormat> privateFormats(const std::filesystem::path& folder);

} // namespace mnemora::desktop
