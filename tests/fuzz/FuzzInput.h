#pragma once
// What every fuzz target needs: a way to say that something has to hold, and to take an input
// apart into the values that the code under test wants.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace mnemora::fuzz {

/// Ends the process where a promise is broken, so that the input is kept and shown.
inline void require(bool holds) {
    if (!holds)
        std::abort();
}

/// Bytes taken from the front of an input; everything is 0 or empty once it is used up.
class FuzzInput {
  public:
    FuzzInput(const std::uint8_t* data, std::size_t size)
        : bytes_(reinterpret_cast<const char*>(data), size) {}

    [[nodiscard]] bool empty() const { return bytes_.empty(); }
    [[nodiscard]] std::string_view rest() const { return bytes_; }

    std::uint8_t byte() {
        if (bytes_.empty())
            return 0;
        const auto value = static_cast<std::uint8_t>(bytes_.front());
        bytes_.remove_prefix(1);
        return value;
    }
    /// A number from 0 to `most`, made of two bytes.
    int number(int most) {
        const int low = byte();
        return (low + 256 * byte()) % (most + 1);
    }
    /// Everything up to the next zero byte, which is taken too.
    std::string_view text() {
        const auto end = bytes_.find('\0');
        const auto taken = bytes_.substr(0, end);
        bytes_.remove_prefix(end == bytes_.npos ? bytes_.size() : end + 1);
        return taken;
    }

  private:
    std::string_view bytes_;
};

} // namespace mnemora::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
