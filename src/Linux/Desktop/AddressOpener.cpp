#include "Linux/Desktop/AddressOpener.h"

#include "Linux/Desktop/GLibHandles.h"

namespace mnemora::desktop {

bool openAddress(const std::string& address) {
    const GText scheme(g_uri_parse_scheme(address.c_str()));
    if (!scheme)
        return false;
    const GRef<GAppInfo> program(g_app_info_get_default_for_uri_scheme(scheme.get()));
    if (!program)
        return false;
    const GRef<GAppLaunchContext> context(g_app_launch_context_new());
    return g_app_info_launch_default_for_uri(address.c_str(), context.get(), nullptr) != FALSE;
}

} // namespace mnemora::desktop
