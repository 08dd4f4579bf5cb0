#pragma once
// A running engine: a child process with one end of a socket pair as its only way to the world.

#include "Support/FileDescriptor.h"

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace mnemora::engines {

/// Ends the child when it goes. The child also ends with the thread that started it, so that must
/// be a thread that lives as long as the engine is wanted.
class EngineProcess {
  public:
    /// Starts the program with its end of the pair as descriptor 3 and no other but null devices,
    /// an empty environment and no signal blocked. Absent when it can't be started.
    [[nodiscard]] static std::optional<EngineProcess> start(const std::filesystem::path& program,
                                                            std::vector<std::string> arguments);

    EngineProcess(EngineProcess&& other) noexcept;
    EngineProcess& operator=(EngineProcess&&) = delete;
    EngineProcess(const EngineProcess&) = delete;
    /// Kills the child where it still runs, and collects it.
    ~EngineProcess();

    [[nodiscard]] int socket() const { return socket_.get(); }
    [[nodiscard]] pid_t pid() const { return pid_; }

  private:
    EngineProcess(FileDescriptor socket, pid_t pid) : socket_(std::move(socket)), pid_(pid) {}

    FileDescriptor socket_;
    pid_t pid_;
};

/// The processor time that a process has used so far; absent once it is gone.
[[nodiscard]] std::optional<std::chrono::nanoseconds> processorTime(pid_t pid);

} // namespace mnemora::engines
