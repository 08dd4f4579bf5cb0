#pragma once
// Lines from a descriptor, of any length.

#include <cstddef>
#include <optional>
#include <string>

namespace mnemora {

/// Reads a descriptor that it does not own. One thread.
class LineReader {
  public:
    explicit LineReader(int fd) : fd_(fd) {}

    /// The next line without its terminator (line feed, or carriage return and line feed); a last
    /// line without one counts. Waits for input; absent at the end of it or on a read error.
    [[nodiscard]] std::optional<std::string> next();

  private:
    /// False at the end of input.
    [[nodiscard]] bool readMore();

    int fd_;
    std::string buffer_;
    std::size_t start_ = 0;   // first byte of the line that is being read
    std::size_t scanned_ = 0; // no line feed lies before this
};

} // namespace mnemora
