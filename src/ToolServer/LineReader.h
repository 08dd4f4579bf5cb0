#pragma once
// Lines from a descriptor.

#include <cstddef>
#include <optional>
#include <string>

namespace mnemora {

/// Reads a descriptor that it does not own, blocking or not. One thread.
class LineReader {
  public:
    /// A longer line is no message of any use; it would only fill the memory.
    static constexpr std::size_t maxLength = std::size_t{64} << 20;

    explicit LineReader(int fd) : fd_(fd) {}

    /// The next line without its terminator (line feed, or carriage return and line feed); a last
    /// line without one counts. A line longer than `maxLength` is passed over: it comes as an
    /// empty one. Waits for input; absent at the end of it or on a read error.
    [[nodiscard]] std::optional<std::string> next();

  private:
    /// False at the end of input.
    [[nodiscard]] bool readMore();

    int fd_;
    std::string buffer_;      // begins with the line that is being read
    std::size_t scanned_ = 0; // no line feed lies before this
    bool skipping_ = false;   // the line being read is too long
};

} // namespace mnemora
