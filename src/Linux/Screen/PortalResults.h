#pragma once
// What is read out of a portal's results, whatever it put there. Only adapters' .cpp files include
// this.

#include "Linux/Desktop/BusCalls.h"

#include <cstdint>
#include <optional>
#include <string>

namespace mnemora::portal {

/// The entry's text or object path; empty when there is none.
[[nodiscard]] std::string textOf(GVariant* results, const char* name);

/// The PipeWire node of the first stream of a start's results; absent when nothing is cast.
[[nodiscard]] std::optional<std::uint32_t> nodeOf(GVariant* results);

} // namespace mnemora::portal
