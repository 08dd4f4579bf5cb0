#pragma once
// Where the desktop's adapters are put together.

#include "Linux/Desktop/GLibThread.h"
#include "Linux/Desktop/QtMainLoop.h"

#include <functional>
#include <memory>
#include <string>

namespace mnemora::desktop {

/// Makes the services of this session and installs them for the process. False, with the cause in
/// `reason`, without a display. `listener` outlives the services; `quit` is what ends the program.
/// Main thread.
[[nodiscard]] bool installServices(const std::shared_ptr<QtMainLoop>& mainLoop,
                                   GLibThread& listener, std::function<void()> quit,
                                   std::string& reason);

} // namespace mnemora::desktop
