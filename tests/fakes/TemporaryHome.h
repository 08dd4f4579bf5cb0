#pragma once
// A home folder of a test's own, with the XDG variables that point into it.

#include "fakes/ScopedVariable.h"
#include "fakes/TemporaryFolder.h"

#include <filesystem>

namespace mnemora::test {

/// Sets HOME and the XDG folders for its lifetime, then puts them back and removes the folder.
class TemporaryHome {
  public:
    [[nodiscard]] const std::filesystem::path& path() const { return path_.path(); }
    /// The folder that the store makes.
    [[nodiscard]] std::filesystem::path dataFolder() const { return path_ / "data/Mnemora"; }

  private:
    TemporaryFolder path_;
    const ScopedVariable home_{"HOME", path_.path()};
    const ScopedVariable data_{"XDG_DATA_HOME", path_ / "data"};
    const ScopedVariable config_{"XDG_CONFIG_HOME", path_ / "config"};
    const ScopedVariable cache_{"XDG_CACHE_HOME", path_ / "cache"};
};

} // namespace mnemora::test
