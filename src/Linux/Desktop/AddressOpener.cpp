#include "Linux/Desktop/AddressOpener.h"

#include "Linux/Desktop/GLibHandles.h"
#include "Log.h"

namespace mnemora::desktop {

bool openAddress(const std::string& address) {
    const GText scheme(g_uri_parse_scheme(address.c_str()));
    if (!scheme)
        return false;
    const GRef<GAppInfo> program(g_app_info_get_default_for_uri_scheme(scheme.get()));
    const GRef<GAppLaunchContext> context(g_app_launch_context_new());
    if (program && g_app_info_launch_default_for_uri(address.c_str(), context.get(), nullptr))
        return true;
    // A click that does nothing would be a riddle. The rest of the address is the user's own.
    logError(std::string("no program here opens addresses of the kind ") + scheme.get());
    return false;
}

} // namespace mnemora::desktop
