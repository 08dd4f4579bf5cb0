#pragma once
// A folder of a test's own, gone with it.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

namespace mnemora::test {

class TemporaryFolder {
  public:
    TemporaryFolder() {
        auto name = (std::filesystem::temp_directory_path() / "mnemora-test-XXXXXX").string();
        path_ = mkdtemp(name.data());
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }
    operator const std::filesystem::path&() const { return path_; }
    [[nodiscard]] std::filesystem::path operator/(const std::filesystem::path& below) const {
        return path_ / below;
    }

  private:
    std::filesystem::path path_;
};

inline std::string contentOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void writeFile(const std::filesystem::path& path, std::string_view content) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

/// Changes one byte in place, so that the size stays.
inline void flipByte(const std::filesystem::path& path, std::streamoff at) {
    std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
    file.seekg(at);
    const auto byte = static_cast<char>(file.get() ^ 0x20);
    file.seekp(at);
    file.put(byte);
}

} // namespace mnemora::test
