#pragma once
// Databases of a wanted size, for measuring; made once and kept in the user's cache folder of the
// build tree, since 200,000 events take minutes to index.

#include <cstdint>
#include <filesystem>
#include <random>
#include <sqlite3.h>
#include <string>
#include <vector>

namespace mnemora::bench {

/// Numbers of events that figures are given for.
inline constexpr int sizes[] = {10'000, 50'000, 200'000};
/// Length of the vectors, as the sentence model's.
inline constexpr std::size_t dimension = 384;

/// Text of `length` bytes out of 20,000 words whose frequencies fall as in natural language
/// (Zipf's law), so that the full-text index has realistic lists.
[[nodiscard]] std::string text(std::mt19937& random, std::size_t length);

/// A vector of length one in a random direction.
[[nodiscard]] std::vector<float> unitVector(std::mt19937& random);

/// The data folder of a database with `count` events (bodies of 2,000 characters, a vector each),
/// made when it isn't there yet: a value for XDG_DATA_HOME.
[[nodiscard]] std::filesystem::path memoryOf(int count);

} // namespace mnemora::bench
