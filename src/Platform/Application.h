#pragma once
// The program itself, as a process of the desktop.

#include <string>
#include <vector>

namespace mnemora {

/// Main thread.
struct Application {
    virtual ~Application() = default;

    /// What a new instance is started from: the resolved path of the running executable. Empty
    /// when it can't be told.
    [[nodiscard]] virtual std::string bundlePath() = 0;
    /// Starts a program that outlives this one: in a session of its own, without any of our
    /// descriptors but the standard ones. Doesn't wait for it. False when it can't be started.
    virtual bool startDetached(const std::string& program,
                               const std::vector<std::string>& arguments) = 0;
    /// Ends the program soon: the main loop is left once the current work is done.
    virtual void terminate() = 0;
};

} // namespace mnemora
