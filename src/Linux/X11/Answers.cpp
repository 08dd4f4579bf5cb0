#include "Linux/X11/Answers.h"

#include <span>

namespace mnemora::x11 {
namespace {

// Its length counts what follows the first eight bytes, and the vendor's name is padded to a
// multiple of four (X Window System Protocol, "Connection Setup").
constexpr std::size_t lengthCounted = 8;

/// What is left of the introduction.
class Rest {
  public:
    explicit Rest(const xcb_setup_t& setup)
        : left_(reinterpret_cast<const std::byte*>(&setup),
                lengthCounted + setup.length * std::size_t{4}) {}

    /// The next part, with `more` bytes behind it; null where there isn't as much.
    template <class Part>
    const Part* take(std::size_t more = 0) {
        const auto* part = reinterpret_cast<const Part*>(left_.data());
        return skip(sizeof(Part) + more) ? part : nullptr;
    }
    bool skip(std::size_t bytes) {
        if (left_.size() < bytes)
            return false;
        left_ = left_.subspan(bytes);
        return true;
    }

  private:
    std::span<const std::byte> left_;
};

bool skipDepths(Rest& rest, int count) {
    for (; count > 0; --count) {
        const auto* depth = rest.take<xcb_depth_t>();
        if (depth == nullptr || !rest.skip(depth->visuals_len * sizeof(xcb_visualtype_t)))
            return false;
    }
    return true;
}

} // namespace

std::vector<xcb_window_t> childrenIn(const xcb_query_tree_reply_t& tree) {
    if (!holds(tree, tree.children_len * sizeof(xcb_window_t)))
        return {};
    const xcb_window_t* first = xcb_query_tree_children(&tree);
    return {first, first + tree.children_len};
}

const xcb_screen_t* screenOf(xcb_connection_t* connection, int number) {
    const xcb_setup_t* setup = xcb_get_setup(connection);
    Rest rest(*setup);
    if (rest.take<xcb_setup_t>() == nullptr || !rest.skip((setup->vendor_len + 3U) & ~3U) ||
        !rest.skip(setup->pixmap_formats_len * sizeof(xcb_format_t)))
        return nullptr;
    const xcb_screen_t* wanted = nullptr;
    for (int at = 0; at < setup->roots_len; ++at) {
        const auto* screen = rest.take<xcb_screen_t>();
        if (screen == nullptr || !skipDepths(rest, screen->allowed_depths_len))
            return nullptr;
        if (at <= number)
            wanted = screen;
    }
    return wanted;
}

} // namespace mnemora::x11
