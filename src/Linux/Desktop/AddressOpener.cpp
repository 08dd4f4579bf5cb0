#include "Linux/Desktop/AddressOpener.h"

#include "Linux/Desktop/GLibHandles.h"
#include "Log.h"
#include "Support/CoreFiles.h"

#include <gio/gdesktopappinfo.h>

namespace mnemora::desktop {
namespace {

/// As g_app_info_launch_default_for_uri, but the program may leave core files like any other.
bool launch(GDesktopAppInfo* program, std::string address, GAppLaunchContext* context) {
    GList addresses{.data = address.data(), .next = nullptr, .prev = nullptr};
    return g_desktop_app_info_launch_uris_as_manager(
               program, &addresses, context, G_SPAWN_SEARCH_PATH,
               [](gpointer) { coreFiles::allowAgain(); }, nullptr, nullptr, nullptr,
               nullptr) != FALSE;
}

} // namespace

bool openAddress(const std::string& address) {
    const GText scheme(g_uri_parse_scheme(address.c_str()));
    if (!scheme)
        return false;
    const GRef<GAppInfo> program(g_app_info_get_default_for_uri_scheme(scheme.get()));
    const GRef<GAppLaunchContext> context(g_app_launch_context_new());
    if (G_IS_DESKTOP_APP_INFO(program.get()) &&
        launch(G_DESKTOP_APP_INFO(program.get()), address, context.get()))
        return true;
    // A click that does nothing would be a riddle. The rest of the address is the user's own.
    logError(std::string("no program here opens addresses of the kind ") + scheme.get());
    return false;
}

} // namespace mnemora::desktop
