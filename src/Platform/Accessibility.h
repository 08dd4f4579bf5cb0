#pragma once
// What the desktop's accessibility interface says of windows.

#include <optional>
#include <string>

namespace mnemora {

/// The focused window of an application.
struct FocusedWindow {
    /// Its title; absent when it has none. An empty title is a title.
    std::optional<std::string> title;

    bool operator==(const FocusedWindow&) const = default;
};

/// Main thread; answers come from what the accessibility thread last heard, within 50 ms.
struct Accessibility {
    virtual ~Accessibility() = default;

    /// Whether titles of other programs can really be read here.
    [[nodiscard]] virtual bool isProcessTrusted() = 0;
    /// The focused window of the process; absent when it has none or it can't be read.
    [[nodiscard]] virtual std::optional<FocusedWindow> focusedWindow(int processIdentifier) = 0;
};

} // namespace mnemora
