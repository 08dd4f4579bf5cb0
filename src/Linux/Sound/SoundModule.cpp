#include "Linux/Sound/SoundModule.h"

#include "Linux/Sound/PulseAudioInput.h"
#include "Linux/Sound/PulseSystemAudio.h"

void mnemoraMakeSoundDevices(const std::shared_ptr<mnemora::MainLoop>& mainLoop,
                             mnemora::SoundDevices& made) {
    made = {.input = std::make_shared<mnemora::pulse::PulseAudioInput>(mainLoop),
            .output = std::make_shared<mnemora::pulse::PulseSystemAudio>()};
}
