#pragma once
// The window that shows what was recorded. One for the program's life: closing hides it.

#include <memory>

class QMainWindow;

namespace mnemora {

class MeetingsView;
class MnemoraStore;

/// Needs the toolkit's application object. Main thread.
class MeetingsWindow {
  public:
    [[nodiscard]] static MeetingsWindow& shared();
    ~MeetingsWindow();
    MeetingsWindow(const MeetingsWindow&) = delete;
    MeetingsWindow& operator=(const MeetingsWindow&) = delete;

    /// Shows the state of the store at this moment, the newest meeting selected, in front of the
    /// other windows. Size and position stay as the user left them.
    void show(MnemoraStore& store);

    /// The window; null before the first opening and once the application quits.
    [[nodiscard]] QMainWindow* window() const { return window_.get(); }

  private:
    MeetingsWindow();

    std::unique_ptr<QMainWindow> window_;
};

} // namespace mnemora
