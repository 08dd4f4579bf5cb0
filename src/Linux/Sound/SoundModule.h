#pragma once
// The door to libmnemora-sound.so, which holds all that needs the sound server's client library: a
// desktop without that library lacks recording and nothing else.

#include "Platform/Audio.h"
#include "Platform/MainLoop.h"

#include <memory>

namespace mnemora {

struct SoundDevices {
    std::shared_ptr<AudioInput> input;
    std::shared_ptr<SystemAudio> output;
};

/// Opens the module. Both are null, with one error line, when it or the library is missing.
[[nodiscard]] SoundDevices loadSoundDevices(const std::shared_ptr<MainLoop>& mainLoop);

} // namespace mnemora

extern "C" {
/// The module's only function that is looked up by name. Connects to nothing yet.
[[gnu::visibility("default")]] void
mnemoraMakeSoundDevices(const std::shared_ptr<mnemora::MainLoop>& mainLoop,
                        mnemora::SoundDevices& made);
}
