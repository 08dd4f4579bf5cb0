#include "Linux/Screen/ScreenCastModule.h"

#include "Linux/Screen/PipeWireFrames.h"

#include <exception>
#include <utility>

void mnemoraOpenScreenCast(mnemora::FileDescriptor& remote, std::uint32_t node,
                           std::shared_ptr<mnemora::FrameStream>& opened, std::string& reason) {
    try {
        opened = mnemora::pipewire::PipeWireFrames::open(std::move(remote), node, reason);
    } catch (const std::exception& failure) {
        reason = failure.what();
    }
}
