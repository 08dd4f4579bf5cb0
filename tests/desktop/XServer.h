#pragma once
// An X server that a test hangs, kills or sets up as it likes.

#include "desktop/Program.h"
#include "fakes/ScopedVariable.h"

#include <memory>
#include <string>
#include <vector>

namespace mnemora::desktop {

/// On a free display, without a window manager. The environment names it and no other display
/// while it runs.
class XServer {
  public:
    explicit XServer(std::vector<std::string> command = {"Xvfb"});

    /// False when the program isn't installed or didn't start.
    [[nodiscard]] bool isThere() const { return isThere_; }
    void signal(int number) const { program_->signal(number); }

  private:
    std::unique_ptr<Program> program_;
    bool isThere_ = false;
    test::ScopedVariable display_{"DISPLAY", std::nullopt};
    test::ScopedVariable compositor_{"WAYLAND_DISPLAY", std::nullopt};
    test::ScopedVariable session_{"XDG_SESSION_TYPE", std::nullopt};
};

} // namespace mnemora::desktop
