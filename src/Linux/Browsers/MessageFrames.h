#pragma once
// The frames of native messaging: a 32-bit length in the machine's byte order, then that many
// bytes of JSON in UTF-8. The browser speaks them with the host program, and the host program
// with us (https://developer.chrome.com/docs/extensions/develop/concepts/native-messaging).

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace mnemora::browsers {

/// Most bytes of a message from the extension. It cuts a page's text to 256 Ki UTF-16 units, of
/// which JSON makes at most 1.5 MiB.
constexpr std::size_t longestFromBrowser = 4 << 20;
/// Most bytes of a message to the extension; the browser's own limit is 1 MiB.
constexpr std::size_t longestToBrowser = 64 << 10;

/// The message with its length in front.
[[nodiscard]] std::string framed(std::string_view message);

/// Cuts a stream of bytes, however it is split, into messages. One thread.
class FrameReader {
  public:
    /// Messages of more than `longest` bytes count as garbage.
    explicit FrameReader(std::size_t longest) : longest_(longest) {}

    void append(std::string_view bytes);
    /// The next whole message; absent while it is incomplete, or for good once the stream is bad.
    [[nodiscard]] std::optional<std::string> next();
    /// True once a length of zero or above the limit was announced: where the next message would
    /// begin is unknown from there on, so the connection has to end.
    [[nodiscard]] bool bad() const { return bad_; }

  private:
    std::size_t longest_;
    std::string buffer_;
    std::size_t taken_ = 0; // bytes of buffer_ that next() has given out
    bool bad_ = false;
};

} // namespace mnemora::browsers
