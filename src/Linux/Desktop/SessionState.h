#pragma once
// Whether this session is the one that the user looks at and is not locked: by logind
// (org.freedesktop.login1(5), properties Active and LockedHint) and by the screen savers of the
// desktops (signal ActiveChanged). Both are followed by their signals.

#include "Linux/Desktop/GLibThread.h"

#include <memory>

namespace mnemora::desktop {

/// Any thread. What no one tells counts as unlocked and in front.
class SessionState {
  public:
    /// Starts to listen on `thread`, which outlives it.
    explicit SessionState(GLibThread& thread);
    ~SessionState();
    SessionState(const SessionState&) = delete;
    SessionState& operator=(const SessionState&) = delete;

    /// False while the session is locked or another user's is in front. Answers at once.
    [[nodiscard]] bool isInFront() const;

  private:
    struct Listener;
    GLibThread& thread_;
    std::shared_ptr<Listener> listener_;
};

} // namespace mnemora::desktop
