#pragma once
// The title of an application's focused window, and the way to the permission for it.

#include "Platform/Workspace.h"

#include <optional>
#include <string>

namespace mnemora {

/// Namespace-like holder without state. Main thread.
struct WindowInspector {
    WindowInspector() = delete;

    /// The title of the application's focused window, unchanged; absent when there is no such
    /// window, it has no title, or titles can't be read here. Logs nothing.
    [[nodiscard]] static std::optional<std::string>
    focusedWindowTitle(const RunningApplication& application);

    /// Opens the settings page on which the user lets the program read titles.
    static void openSettings();
};

} // namespace mnemora
