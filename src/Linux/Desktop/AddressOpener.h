#pragma once
// Opens addresses with the programs that the user chose for them.

#include <string>

namespace mnemora::desktop {

/// Starts the desktop's program for the address. False when the address has no scheme, no program
/// is set for it, or the program can't be started; the latter two with an error line. Main thread;
/// doesn't wait for the program.
bool openAddress(const std::string& address);

} // namespace mnemora::desktop
