#pragma once
// What the setup window says: three permissions, and what follows from their states. A value, so
// that its rules can be read without a window.

#include <functional>
#include <string>
#include <vector>

namespace mnemora {

/// Main thread.
class OnboardingView {
  public:
    /// One permission as it is shown now.
    struct Row {
        std::string title;
        std::string detail;
        bool isGranted = false;
        /// What "Grant" does; it may bring another window up.
        std::function<void()> grant;
    };

    /// Reads the three states. `onClose` is what the primary button calls.
    explicit OnboardingView(std::function<void()> onClose);

    /// Reads the states again; false when none has changed. Once a second and whenever the program
    /// comes to the front.
    bool recheck();

    /// In the order of display.
    [[nodiscard]] std::vector<Row> rows() const;
    /// Whether the tip about a restart and the button for it are there.
    [[nodiscard]] bool offersRestart() const { return !screen_; }
    /// Of the window's default button.
    [[nodiscard]] std::string primaryLabel() const;
    void close() const;

  private:
    [[nodiscard]] static Row row(std::string title, std::string detail, std::string granted,
                                 bool on, std::function<void()> grant);

    std::function<void()> onClose_;
    bool ax_;      // titles can be read
    bool screen_;  // the screen can be read
    bool browser_; // a running browser's page can be read
};

} // namespace mnemora
