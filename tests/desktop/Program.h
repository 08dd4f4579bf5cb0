#pragma once
// Programs that a test starts.

#include <string>
#include <sys/types.h>
#include <vector>

namespace mnemora::desktop {

/// A program started by the test; it and its children end with the object.
class Program {
  public:
    explicit Program(const std::vector<std::string>& command);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    [[nodiscard]] pid_t process() const { return process_; }
    /// To the program and its children.
    void signal(int number) const;
    /// Waits for the program to end by itself.
    void wait();

  private:
    pid_t process_ = 0;
};

} // namespace mnemora::desktop
