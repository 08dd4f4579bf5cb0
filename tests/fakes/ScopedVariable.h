#pragma once

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

namespace mnemora::test {

/// Sets a variable of the environment, or unsets it where there is no value, and puts it back
/// when it goes.
class ScopedVariable {
  public:
    ScopedVariable(std::string name, const std::optional<std::string>& value)
        : name_(std::move(name)) {
        if (const char* former = std::getenv(name_.c_str()))
            former_ = former;
        set(value);
    }
    ~ScopedVariable() { set(former_); }
    ScopedVariable(const ScopedVariable&) = delete;
    ScopedVariable& operator=(const ScopedVariable&) = delete;

    void set(const std::optional<std::string>& value) const {
        if (value)
            setenv(name_.c_str(), value->c_str(), 1);
        else
            unsetenv(name_.c_str());
    }

  private:
    std::string name_;
    std::optional<std::string> former_;
};

} // namespace mnemora::test
