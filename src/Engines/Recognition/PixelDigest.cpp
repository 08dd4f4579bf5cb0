#include "Engines/Recognition/PixelDigest.h"

#include <array>
#include <memory>
#include <xxhash.h>

namespace mnemora::recognition {
namespace {

struct FreeState {
    void operator()(XXH3_state_t* state) const { XXH3_freeState(state); }
};

} // namespace

PixelDigest digestOf(const PictureView& picture, const Box& box) {
    const std::unique_ptr<XXH3_state_t, FreeState> state(XXH3_createState());
    XXH3_128bits_reset(state.get());
    const std::array<int, 2> size{box.width(), box.height()};
    XXH3_128bits_update(state.get(), size.data(), sizeof(size));
    const auto offset = static_cast<std::size_t>(box.left) * 4;
    const auto length = static_cast<std::size_t>(box.width()) * 4;
    for (int y = box.top; y < box.bottom; ++y)
        XXH3_128bits_update(state.get(), picture.row(y) + offset, length);
    const auto digest = XXH3_128bits_digest(state.get());
    return {digest.low64, digest.high64};
}

} // namespace mnemora::recognition
