#pragma once
// A home folder of a test's own, with the XDG variables that point into it.

#include <filesystem>
#include <map>
#include <optional>
#include <string>

namespace mnemora::test {

/// Sets HOME and the XDG folders for its lifetime, then puts them back and removes the folder.
class TemporaryHome {
  public:
    TemporaryHome();
    ~TemporaryHome();
    TemporaryHome(const TemporaryHome&) = delete;
    TemporaryHome& operator=(const TemporaryHome&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }
    /// The folder that the store makes.
    [[nodiscard]] std::filesystem::path dataFolder() const { return path_ / "data" / "Mnemora"; }

  private:
    void set(const std::string& variable, const std::string& value);

    std::filesystem::path path_;
    std::map<std::string, std::optional<std::string>> former_;
};

} // namespace mnemora::test
