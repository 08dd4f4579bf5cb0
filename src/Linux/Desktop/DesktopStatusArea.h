#pragma once
// Status items on Linux: on the message bus where a panel listens there, in the older system tray
// of X11 otherwise, whichever appears and whenever it does.

#include "Platform/StatusItem.h"

namespace mnemora::desktop {

/// Needs the toolkit's application object. Main thread.
class DesktopStatusArea : public StatusArea {
  public:
    [[nodiscard]] std::unique_ptr<StatusItem> add(StatusItemContent content) override;
};

} // namespace mnemora::desktop
