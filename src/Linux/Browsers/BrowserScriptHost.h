#pragma once
// Answers the scripts that ask a browser for its page, from the browser's extension.

#include "Platform/ScriptHost.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace mnemora::browsers {

/// What a BrowserScriptHost needs of the rest of the program. The functions are called on any
/// thread, also after the host is gone while a script of it still runs.
struct BrowserScriptHostOptions {
    /// Where host programs connect; see pageSocketPath().
    std::filesystem::path socket;
    /// The resolved path of the host program; nothing else is spoken to.
    std::filesystem::path hostProgram;
    /// Identifier of the frontmost application; absent when there is none. Answers at once.
    std::function<std::optional<std::string>()> frontmostApplication;
    /// Whether a window of that application with that title has its content withheld. The page's
    /// own title is known here even where the desktop can't read one.
    std::function<bool(const std::string& bundleIdentifier, const std::string& title)> withholds;
    /// Whether the pages at that address belong to an application whose content is never read, as
    /// a password manager's do; empty: none does.
    std::function<bool(const std::string& address)> conceals = {};
    /// For a supported browser without a connected extension; may be null.
    std::shared_ptr<ScriptHost> fallback;
};

/// While the browser is in front, its window with the focus answers both scripts. Otherwise its
/// ordinary window used last answers the one for the address, and the one for the text ends in an
/// error. Where an extension is connected its refusal is final: the window in front is private,
/// or another profile's that the user kept the extension out of.
///
/// Time bounds: 1.5 seconds; on the process's main thread 30 milliseconds for all questions within
/// half a second, after which an address that the browser told before is taken unless the browser
/// hangs.
class BrowserScriptHost : public ScriptHost {
  public:
    /// Null when no socket can be opened here (no runtime folder).
    [[nodiscard]] static std::shared_ptr<BrowserScriptHost>
    create(BrowserScriptHostOptions options);
    ~BrowserScriptHost() override;

    [[nodiscard]] std::unique_ptr<Script> compile(const std::string& text) override;
    /// Whether the extension of a browser with this identifier is connected. Any thread.
    [[nodiscard]] bool hasExtension(const std::string& bundleIdentifier) const;

  private:
    struct Rules;
    explicit BrowserScriptHost(std::shared_ptr<Rules> rules);

    std::shared_ptr<Rules> rules_; // shared with the scripts
};

} // namespace mnemora::browsers
