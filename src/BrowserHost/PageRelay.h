#pragma once
// Relays messages between the browser that started this program and the running application.

#include "Linux/Browsers/MessageFrames.h"
#include "Support/FileDescriptor.h"

#include <chrono>
#include <filesystem>
#include <string>

namespace mnemora::browsers {

/// One thread. Lives as long as the browser keeps the pipes open; the application may come and go.
class PageRelay {
  public:
    /// Between two attempts to find the application: soon enough for somebody who has just
    /// started it, seldom enough to cost nothing while it isn't running.
    static constexpr std::chrono::milliseconds usualPause{3000};

    /// Speaks with the browser on `fromBrowser` and `toBrowser`, which stay the caller's, and with
    /// whoever listens at `socket`, provided that it runs the executable `application` (a resolved
    /// path). `browser` is the executable that started this program.
    PageRelay(int fromBrowser, int toBrowser, std::filesystem::path socket,
              std::filesystem::path application, std::string browser,
              std::chrono::milliseconds pause = usualPause);

    /// Returns when the browser has ended, or says what can't be a message.
    void run();

  private:
    void connect();
    void disconnect();
    [[nodiscard]] bool relayFromBrowser();
    [[nodiscard]] bool relayFromApplication();
    [[nodiscard]] int timeUntilAttempt() const;

    const int fromBrowser_;
    const int toBrowser_;
    const std::filesystem::path socket_;
    const std::filesystem::path program_; // the application's
    const std::string browser_;
    const std::chrono::milliseconds pause_;
    FileDescriptor application_;
    FrameReader browserInput_{longestFromBrowser};
    FrameReader applicationInput_{longestToBrowser};
    std::chrono::steady_clock::time_point nextAttempt_{};
};

} // namespace mnemora::browsers
