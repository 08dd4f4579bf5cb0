#include "Store/Models.h"

#include "Text/Characters.h"

#include <cstdint>
#include <random>
#include <xxhash.h>

namespace mnemora {
namespace {

constexpr char unitSeparator = '\x1F';

/// A captured text must not be guessable from the hashes that are stored beside it, hence a seed
/// from the system's entropy, drawn once per process.
std::uint64_t processSeed() {
    static const std::uint64_t seed = [] {
        std::random_device entropy;
        return (static_cast<std::uint64_t>(entropy()) << 32) | entropy();
    }();
    return seed;
}

} // namespace

std::string MnemoraEvent::hash() const {
    const std::string empty;
    std::string joined = source;
    for (const std::string& text : {app.value_or(empty), kind, title.value_or(empty),
                                    url.value_or(empty), body.value_or(empty)}) {
        joined += unitSeparator;
        joined += text;
    }
    const std::string form = normalized(joined);
    const std::uint64_t value = XXH3_64bits_withSeed(form.data(), form.size(), processSeed());
    return std::to_string(static_cast<std::int64_t>(value));
}

} // namespace mnemora
