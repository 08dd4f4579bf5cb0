#pragma once
// A program that a test starts, talks to over two pipes, and may kill.

#include "Support/FileDescriptor.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace mnemora::test {

/// Started at once with pipes as its standard input and output and the test's environment. Killed,
/// if it still runs, when this goes.
class ChildProcess {
  public:
    enum class Errors { shown, dropped };

    explicit ChildProcess(std::vector<std::string> command, Errors errors = Errors::shown);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    [[nodiscard]] pid_t pid() const { return pid_; }
    /// False when the program reads no more.
    bool send(const std::string& bytes);
    void endInput() { input_.reset(); }
    void stopReading() { output_.reset(); }
    void kill() const;

    /// The next line of its output, without the line feed; empty at its end and when none comes
    /// within `patienceMs`.
    std::string readLine(int patienceMs = 60'000);
    /// All that it still writes, until it ends; its wait status then stands in `status()`.
    std::string finish();
    [[nodiscard]] int status() const { return status_; }

  private:
    pid_t pid_ = 0; // 0 once it has been waited for
    int status_ = 0;
    FileDescriptor input_;
    FileDescriptor output_;
    std::string unread_;
};

} // namespace mnemora::test
