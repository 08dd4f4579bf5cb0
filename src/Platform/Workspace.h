#pragma once
// The running applications and the one in front.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace mnemora {

/// A running application as the rules know it.
struct RunningApplication {
    /// Identifier that the rules compare (see ApplicationCatalogue); absent when unknown.
    std::optional<std::string> bundleIdentifier;
    /// Name in the user's language; absent when unknown.
    std::optional<std::string> localizedName;
    /// Process identifier; 0 when the platform doesn't tell.
    int processIdentifier = 0;

    bool operator==(const RunningApplication&) const = default;
};

/// A registration that ends when it is destroyed. Main thread.
struct Observation {
    virtual ~Observation() = default;
};

/// Main thread; no operation waits for another program.
struct Workspace {
    virtual ~Workspace() = default;

    /// The application whose window has the focus; absent while none has, the screen is locked or
    /// off, or another user's session is in front.
    [[nodiscard]] virtual std::optional<RunningApplication> frontmostApplication() = 0;
    /// Calls `activated` on the main thread each time another application comes to the front. The
    /// argument is absent where the platform can't tell which.
    [[nodiscard]] virtual std::unique_ptr<Observation>
    observeActivation(std::function<void(const std::optional<RunningApplication>&)> activated) = 0;
    /// The running applications with this identifier; empty when there is none.
    [[nodiscard]] virtual std::vector<RunningApplication>
    runningApplications(const std::string& bundleIdentifier) = 0;
    /// Opens an address with the program that the desktop uses for it, or one of our own settings
    /// pages. False when nothing could be opened.
    virtual bool open(const std::string& address) = 0;
};

} // namespace mnemora
