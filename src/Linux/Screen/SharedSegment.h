#pragma once
// A System V shared memory segment, as MIT-SHM wants it.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace mnemora::x11 {

/// Attached for its life; its memory goes with the last process that has it attached.
class SharedSegment {
  public:
    /// Readable by the user's own processes only, and marked for removal from the start, so that no
    /// crash leaves it behind: Linux lets others attach it as long as somebody has it attached
    /// (shmctl(2)). Absent when there is no memory.
    [[nodiscard]] static std::optional<SharedSegment> create(std::size_t size);

    SharedSegment(SharedSegment&& other) noexcept;
    SharedSegment& operator=(SharedSegment&&) = delete;
    SharedSegment(const SharedSegment&) = delete;
    ~SharedSegment();

    [[nodiscard]] std::uint32_t identifier() const { return static_cast<std::uint32_t>(id_); }
    [[nodiscard]] std::span<const std::uint8_t> bytes() const { return bytes_; }

  private:
    SharedSegment(int id, std::span<const std::uint8_t> bytes) : id_(id), bytes_(bytes) {}

    int id_ = -1;
    std::span<const std::uint8_t> bytes_;
};

} // namespace mnemora::x11
