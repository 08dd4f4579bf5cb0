#include "Linux/Sound/SoundModule.h"
#include "Log.h"
#include "Support/Installation.h"
#include "Support/Module.h"

namespace mnemora {

SoundDevices loadSoundDevices(const std::shared_ptr<MainLoop>& mainLoop) {
    SoundDevices devices;
    std::string reason;
    const auto module = Module::open(installation::libraries() / "libmnemora-sound.so", &reason);
    auto* make =
        module ? module->function<decltype(mnemoraMakeSoundDevices)>("mnemoraMakeSoundDevices")
               : nullptr;
    if (make != nullptr)
        make(mainLoop, devices);
    else
        logError("sound is unavailable: " + reason);
    return devices;
}

} // namespace mnemora
