#pragma once
// Small values that the program remembers between its runs, by key.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <variant>

namespace mnemora {

/// What a key can hold.
using DefaultsValue = std::variant<std::int64_t, double, std::string>;

/// Abstract so that tests need no file; the real one is a small file among the user's settings.
/// Main thread.
struct UserDefaults {
    virtual ~UserDefaults() = default;

    /// The value under `key`; absent when there is none.
    [[nodiscard]] virtual std::optional<DefaultsValue> value(const std::string& key) const = 0;
    /// Keeps the value for this run, and for the next ones where it can be written. No failure is
    /// reported: the adapter writes its one error line.
    virtual void set(const std::string& key, DefaultsValue value) = 0;

    /// A number as an integer, 0 when there is none or it isn't one. A fraction is cut off.
    [[nodiscard]] std::int64_t integer(const std::string& key) const;
    /// A number, 0 when there is none.
    [[nodiscard]] double real(const std::string& key) const;
    /// A text; absent when there is none, also when the key holds a number.
    [[nodiscard]] std::optional<std::string> text(const std::string& key) const;
};

/// The values of a settings file: one JSON object. What is no object, is too large or is damaged
/// anywhere gives absent; members that are neither number nor text are left out, and an integer
/// beyond 64 bits becomes a real number. Safe on any text.
[[nodiscard]] std::optional<std::map<std::string, DefaultsValue>>
parseDefaults(const std::string& text);

/// The text that parseDefaults() reads back, one member a line.
[[nodiscard]] std::string formatDefaults(const std::map<std::string, DefaultsValue>& values);

/// More is no file of ours.
constexpr std::size_t maxDefaultsBytes = 64 * 1024;

} // namespace mnemora
