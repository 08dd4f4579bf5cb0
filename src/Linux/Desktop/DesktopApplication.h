#pragma once
// This process, on Linux.

#include "Platform/Application.h"

#include <functional>

namespace mnemora::desktop {

/// Main thread.
class DesktopApplication : public Application {
  public:
    /// `quit` leaves the main loop.
    explicit DesktopApplication(std::function<void()> quit);

    [[nodiscard]] std::string bundlePath() override;
    bool startDetached(const std::string& program,
                       const std::vector<std::string>& arguments) override;
    void terminate() override;

  private:
    std::function<void()> quit_;
};

} // namespace mnemora::desktop
