#include "Linux/Screen/ScreenCastModule.h"

#include "Linux/Screen/PipeWireFrames.h"

#include <exception>
#include <utility>

void mnemoraOpenScreenCast(mnemora::CastSource& source,
                           std::shared_ptr<mnemora::FrameStream>& opened, std::string& reason) {
    try {
        opened = mnemora::pipewire::PipeWireFrames::open(std::move(source), reason);
    } catch (const std::exception& failure) {
        reason = failure.what();
    }
}
