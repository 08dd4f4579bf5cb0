#include "Capture/ScreenTextCapturer.h"

#include "Log.h"
#include "Platform/DesktopServices.h"

namespace mnemora {
namespace {

void logCaptureFailure(const std::string& description) {
    logError("screen capture failed: " + description);
}

} // namespace

std::optional<std::string> ScreenTextCapturer::captureText() {
    const auto& capture = desktopServices().screenCapture;
    if (!capture || !capture->isPermitted())
        return std::nullopt;
    const auto displays = capture->displays();
    if (!displays) {
        logCaptureFailure(displays.description());
        return std::nullopt;
    }
    if (displays->empty())
        return std::nullopt;
    const Display& first = displays->front();
    const auto image = capture->image(first, first.width, first.height);
    if (!image) {
        logCaptureFailure(image.description());
        return std::nullopt;
    }
    return ocr(*image);
}

std::string ScreenTextCapturer::ocr(const Image& image) {
    std::string text;
    const auto& recognizer = desktopServices().textRecognizer;
    if (!recognizer)
        return text;
    bool isFirst = true;
    for (const RecognizedLine& line : recognizer->recognize(image)) {
        if (!line.bestCandidate)
            continue;
        if (!isFirst)
            text += '\n';
        text += *line.bestCandidate;
        isFirst = false;
    }
    return text;
}

void ScreenTextCapturer::openSettings() {
    if (const auto& workspace = desktopServices().workspace)
        workspace->open(
            "x-apple.systempreferences:com.apple.preference.security?Privacy_ScreenCapture");
}

} // namespace mnemora
