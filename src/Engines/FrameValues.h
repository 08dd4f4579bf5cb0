#pragma once
// Plain values in the payload of a frame, as the memory holds them: both ends are this machine's.

#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>

namespace mnemora::engines {

template <class Value>
void append(std::string& bytes, const Value& value) {
    static_assert(std::is_arithmetic_v<Value>);
    bytes.append(reinterpret_cast<const char*>(&value), sizeof(value));
}

/// Takes the value off the front; false, and nothing taken, when too few bytes are left.
template <class Value>
[[nodiscard]] bool take(std::string_view& bytes, Value& value) {
    static_assert(std::is_arithmetic_v<Value>);
    if (bytes.size() < sizeof(value))
        return false;
    std::memcpy(&value, bytes.data(), sizeof(value));
    bytes.remove_prefix(sizeof(value));
    return true;
}

} // namespace mnemora::engines
