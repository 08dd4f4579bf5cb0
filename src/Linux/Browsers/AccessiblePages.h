#pragma once
// Answers the scripts from what a browser shows to assistive technology, for browsers without our
// extension: GNOME Web, and a browser of Chromium's family until the extension is installed there.

#include "Linux/FrontWindowGuard.h"
#include "Platform/ScriptHost.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace mnemora::browsers {

/// Only ever reads the window in front, and only while the guard lets it. Slower than the
/// extension (several bus calls for every element of the page), and the text differs from
/// innerText in blank lines and list markers; entry fields are left out. A page whose first 24 KiB
/// can't be read in 1.3 seconds has no text, nor has what is no page of the web or a file: the
/// browser's own pages, such as its saved passwords, and those of other extensions. Not for the
/// main thread: scripts fail there at once.
///
/// Programs show what is inside their windows only while somebody listens to the accessibility bus
/// (atspi::AccessibleWindows does), and Chromium its pages only while a screen reader is on or it
/// was started with --force-renderer-accessibility.
class AccessiblePages : public ScriptHost {
  public:
    struct Options {
        /// As in BrowserScriptHostOptions.
        std::function<std::optional<std::string>()> frontmostApplication;
        std::shared_ptr<FrontWindowGuard> guard;
        /// Grows whenever another window may have come to the front, appeared or gone, as of the
        /// guard's last answer. Without it, only what is in front right before and right after a
        /// page is read counts.
        std::function<std::uint64_t()> windowChanges = {};
        /// As in BrowserScriptHostOptions.
        std::function<bool(const std::string& address)> conceals = {};
    };

    explicit AccessiblePages(Options options);

    [[nodiscard]] std::unique_ptr<Script> compile(const std::string& text) override;

  private:
    std::shared_ptr<const Options> options_; // shared with the scripts
};

} // namespace mnemora::browsers
