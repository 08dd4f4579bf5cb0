#include "Platform/UserDefaults.h"

#include <nlohmann/json.hpp>

#include <utility>

namespace mnemora {
namespace {

using nlohmann::json;

// 2^63, the first number that no integer of ours holds; exact as a double.
constexpr double integerEnd = 9223372036854775808.0;

std::int64_t asInteger(double number) {
    return number >= -integerEnd && number < integerEnd ? static_cast<std::int64_t>(number) : 0;
}

std::optional<DefaultsValue> valueOf(const json& member) {
    if (member.is_string())
        return member.get<std::string>();
    if (member.is_number_unsigned() && member.get<std::uint64_t>() > INT64_MAX)
        return member.get<double>();
    if (member.is_number_integer())
        return member.get<std::int64_t>();
    if (member.is_number_float())
        return member.get<double>();
    return std::nullopt;
}

} // namespace

std::int64_t UserDefaults::integer(const std::string& key) const {
    const auto found = value(key);
    if (!found)
        return 0;
    if (const auto* number = std::get_if<double>(&*found))
        return asInteger(*number);
    const auto* number = std::get_if<std::int64_t>(&*found);
    return number != nullptr ? *number : 0;
}

double UserDefaults::real(const std::string& key) const {
    const auto found = value(key);
    if (!found)
        return 0;
    if (const auto* number = std::get_if<std::int64_t>(&*found))
        return static_cast<double>(*number);
    const auto* number = std::get_if<double>(&*found);
    return number != nullptr ? *number : 0;
}

std::optional<std::string> UserDefaults::text(const std::string& key) const {
    auto found = value(key);
    auto* text = found ? std::get_if<std::string>(&*found) : nullptr;
    return text != nullptr ? std::optional(std::move(*text)) : std::nullopt;
}

std::optional<std::map<std::string, DefaultsValue>> parseDefaults(const std::string& text) {
    if (text.size() > maxDefaultsBytes)
        return std::nullopt;
    const json object = json::parse(text, nullptr, false);
    if (!object.is_object())
        return std::nullopt;
    std::map<std::string, DefaultsValue> values;
    for (const auto& [key, member] : object.items())
        if (auto value = valueOf(member))
            values.emplace(key, std::move(*value));
    return values;
}

std::string formatDefaults(const std::map<std::string, DefaultsValue>& values) {
    json object = json::object();
    for (const auto& [key, value] : values)
        std::visit([&, &name = key](const auto& held) { object[name] = held; }, value);
    // A text that isn't valid UTF-8 must not make the file unreadable, nor throw.
    return object.dump(4, ' ', false, json::error_handler_t::replace) + "\n";
}

} // namespace mnemora
