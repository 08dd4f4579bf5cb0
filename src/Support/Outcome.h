#pragma once
// The answer of an operation that may fail with a reason that somebody will read.

#include <optional>
#include <string>
#include <utility>

namespace mnemora {

/// Why an operation failed, in words fit for a log line.
struct Failure {
    std::string description;
};

/// Either a value or the reason why there is none.
template <class T>
class Outcome {
  public:
    Outcome(T value) : value_(std::move(value)) {}
    Outcome(Failure failure) : failure_(std::move(failure)) {}

    [[nodiscard]] explicit operator bool() const { return value_.has_value(); }
    [[nodiscard]] const T& operator*() const { return *value_; }
    [[nodiscard]] T& operator*() { return *value_; }
    [[nodiscard]] const T* operator->() const { return &*value_; }
    /// The reason; empty where there is a value.
    [[nodiscard]] const std::string& description() const { return failure_.description; }

  private:
    std::optional<T> value_;
    Failure failure_;
};

} // namespace mnemora
