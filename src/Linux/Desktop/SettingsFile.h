#pragma once
// The user's defaults in one small file.

#include "Platform/UserDefaults.h"

#include <filesystem>
#include <map>

namespace mnemora::desktop {

/// Reads the file once and replaces it whole at each change, mode 0600. A file that can't be
/// understood is kept beside the new one, ending in ".damaged". Where nothing can be written, the
/// values last for this run. Main thread.
class SettingsFile : public UserDefaults {
  public:
    /// For a file of the given name; its folder is made when something is to be written.
    explicit SettingsFile(std::filesystem::path file);

    [[nodiscard]] std::optional<DefaultsValue> value(const std::string& key) const override;
    void set(const std::string& key, DefaultsValue value) override;

  private:
    void load();
    [[nodiscard]] bool write() const;

    std::filesystem::path file_;
    std::map<std::string, DefaultsValue> values_;
    bool saidThatItFails_ = false;
};

} // namespace mnemora::desktop
