#pragma once
// What is on screen, as text: one picture of the first display, read by the text recogniser.

#include "Platform/ScreenCapture.h"

#include <optional>
#include <string>

namespace mnemora {

/// Namespace-like holder without state.
struct ScreenTextCapturer {
    ScreenTextCapturer() = delete;

    /// The recognised text of the screen, empty when there is none; absent when no picture could
    /// be taken. A capture that fails writes one error line; a missing permission or display
    /// writes none. Worker threads; takes as long as the recognition needs.
    [[nodiscard]] static std::optional<std::string> captureText();

    /// Opens the settings page on which the user permits screen capture. Main thread.
    static void openSettings();

  private:
    [[nodiscard]] static std::string ocr(const Image& image);
};

} // namespace mnemora
