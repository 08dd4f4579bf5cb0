#include "Capture/WindowInspector.h"

#include "Platform/DesktopServices.h"

namespace mnemora {

std::optional<std::string>
WindowInspector::focusedWindowTitle(const RunningApplication& application) {
    const auto& accessibility = desktopServices().accessibility;
    if (!accessibility)
        return std::nullopt;
    const auto window = accessibility->focusedWindow(application.processIdentifier);
    return window ? window->title : std::nullopt;
}

void WindowInspector::openSettings() {
    if (const auto& workspace = desktopServices().workspace)
        workspace->open(
            "x-apple.systempreferences:com.apple.preference.security?Privacy_Accessibility");
}

} // namespace mnemora
