#pragma once
// Whether what the X server sent holds what its counts say. libxcb reads as many bytes as an
// answer's length names, while its accessors trust the counts inside: a server that lies would have
// them read beyond the answer.

#include <cstddef>
#include <cstdint>
#include <vector>
#include <xcb/xcb.h>

namespace mnemora::x11 {

/// Whether `bytes` bytes lie behind the fixed 32 of this answer.
template <class Answer>
[[nodiscard]] bool holds(const Answer& answer, std::uint64_t bytes) {
    return answer.length * std::uint64_t{4} >= bytes;
}

/// The windows that an answer lists; none where it lists more than it holds.
[[nodiscard]] std::vector<xcb_window_t> childrenIn(const xcb_query_tree_reply_t& tree);

/// The screen with this number, or the last one; null where the server's introduction doesn't hold
/// all the formats, screens, depths and visuals that it counts, or no screen.
[[nodiscard]] const xcb_screen_t* screenOf(xcb_connection_t* connection, int number);

} // namespace mnemora::x11
