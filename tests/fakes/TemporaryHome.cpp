#include "fakes/TemporaryHome.h"

#include <cstdlib>

namespace mnemora::test {

TemporaryHome::TemporaryHome() {
    std::string pattern = (std::filesystem::temp_directory_path() / "mnemora-test.XXXXXX").string();
    path_ = mkdtemp(pattern.data());
    set("HOME", path_.string());
    set("XDG_DATA_HOME", (path_ / "data").string());
    set("XDG_CONFIG_HOME", (path_ / "config").string());
    set("XDG_CACHE_HOME", (path_ / "cache").string());
}

TemporaryHome::~TemporaryHome() {
    for (const auto& [variable, value] : former_) {
        if (value)
            setenv(variable.c_str(), value->c_str(), 1);
        else
            unsetenv(variable.c_str());
    }
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

void TemporaryHome::set(const std::string& variable, const std::string& value) {
    const char* before = std::getenv(variable.c_str());
    former_[variable] = before != nullptr ? std::optional<std::string>(before) : std::nullopt;
    setenv(variable.c_str(), value.c_str(), 1);
}

} // namespace mnemora::test
