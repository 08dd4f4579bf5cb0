#pragma once
// The window that welcomes the user and leads to the three permissions that capture needs.

#include <memory>

namespace mnemora {

/// Main thread, with the toolkit's application object.
class OnboardingWindow {
  public:
    OnboardingWindow();
    ~OnboardingWindow();
    OnboardingWindow(const OnboardingWindow&) = delete;
    OnboardingWindow& operator=(const OnboardingWindow&) = delete;

    /// Brings the window to the front; makes it when there is none. The title bar's button only
    /// hides it, the primary button ends it, and the next one starts with fresh states.
    void show();

  private:
    class Window;
    std::shared_ptr<std::unique_ptr<Window>> window_; // null inside while there is none
};

} // namespace mnemora
