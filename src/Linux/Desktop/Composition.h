#pragma once
// Where the desktop's adapters are put together.

#include "Linux/Desktop/GLibThread.h"
#include "Linux/Desktop/QtMainLoop.h"

#include <memory>
#include <string>

namespace mnemora::desktop {

/// Makes the services of this session and installs them for the process. False, with the cause in
/// `reason`, without a display. `listener` outlives the services. Main thread.
[[nodiscard]] bool installServices(const std::shared_ptr<QtMainLoop>& mainLoop,
                                   GLibThread& listener, std::string& reason);

} // namespace mnemora::desktop
