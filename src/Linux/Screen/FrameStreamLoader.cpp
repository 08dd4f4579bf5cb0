#include "Linux/Screen/FrameStream.h"

#include "Linux/Screen/ScreenCastModule.h"
#include "Support/Installation.h"
#include "Support/Module.h"

namespace mnemora {

FrameStreamOpener loadFrameStreamOpener(std::string& reason) {
    const auto module =
        Module::open(installation::libraries() / "libmnemora-screencast.so", &reason);
    if (!module)
        return nullptr;
    auto* open = module->function<decltype(mnemoraOpenScreenCast)>("mnemoraOpenScreenCast");
    if (open == nullptr) {
        reason = "libmnemora-screencast.so is not of this version";
        return nullptr;
    }
    return [open](CastSource source, std::string& why) {
        std::shared_ptr<FrameStream> opened;
        open(source, opened, why);
        return opened;
    };
}

} // namespace mnemora
