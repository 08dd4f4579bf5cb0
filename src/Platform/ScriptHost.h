#pragma once
// Scripts that ask a running browser for its active tab.

#include <memory>
#include <optional>
#include <string>

namespace mnemora {

/// What running a script gave.
struct ScriptResult {
    /// True when the run ended in an error; there is no text then.
    bool failed = false;
    /// The result as text; absent when the result has none.
    std::optional<std::string> text;

    bool operator==(const ScriptResult&) const = default;
};

/// A compiled script. Any thread; bounded in time.
struct Script {
    virtual ~Script() = default;
    [[nodiscard]] virtual ScriptResult execute() = 0;
};

/// Understands the texts that BrowserInspector builds, and no others.
struct ScriptHost {
    virtual ~ScriptHost() = default;

    /// Null when the text is none that this host understands. Any thread.
    [[nodiscard]] virtual std::unique_ptr<Script> compile(const std::string& text) = 0;
};

} // namespace mnemora
