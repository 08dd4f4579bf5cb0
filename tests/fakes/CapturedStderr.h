#pragma once
// What the code under test writes to standard error.

#include "Support/FileDescriptor.h"

#include <string>

namespace mnemora::test {

/// Redirects descriptor 2 into a temporary file until it goes or is taken.
class CapturedStderr {
  public:
    CapturedStderr();
    ~CapturedStderr();
    CapturedStderr(const CapturedStderr&) = delete;
    CapturedStderr& operator=(const CapturedStderr&) = delete;

    /// Everything written so far.
    [[nodiscard]] std::string text() const;

  private:
    FileDescriptor former_;
    FileDescriptor file_;
};

} // namespace mnemora::test
