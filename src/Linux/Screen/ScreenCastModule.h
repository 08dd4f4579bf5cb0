#pragma once
// The one door between the desktop module and libmnemora-screencast.so, which alone links PipeWire.

#include "Linux/Screen/FrameStream.h"

extern "C" {
/// Opens the cast into `opened`; leaves it null, with the cause in `reason`, when that fails.
/// Throws nothing.
[[gnu::visibility("default")]] void
mnemoraOpenScreenCast(mnemora::CastSource& source, std::shared_ptr<mnemora::FrameStream>& opened,
                      std::string& reason);
}
