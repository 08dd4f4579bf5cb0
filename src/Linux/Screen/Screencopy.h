#pragma once
// Pictures by wlr-screencopy-unstable-v1, which compositors of the wlroots family give to every
// program of the session without asking.

#include "Platform/ScreenCapture.h"
#include "Support/Outcome.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <mutex>

namespace mnemora::wayland {

class Connection;

/// Any thread; one picture at a time. A compositor that doesn't answer within two seconds counts
/// as gone and is connected to again for the next picture.
class Screencopy {
  public:
    /// Looks whether the compositor of the session offers it, which takes a few milliseconds.
    Screencopy();
    ~Screencopy();
    Screencopy(const Screencopy&) = delete;
    Screencopy& operator=(const Screencopy&) = delete;

    /// Whether it was offered when last asked. At once.
    [[nodiscard]] bool isOffered() const { return isOffered_; }
    /// The first monitor; without pixels where there is no monitor now.
    [[nodiscard]] Outcome<Image> picture();
    /// The same where there is one monitor only; without pixels otherwise.
    [[nodiscard]] Outcome<Image> onlyMonitorsPicture();

  private:
    [[nodiscard]] bool connect(); // with mutex_ held
    [[nodiscard]] Outcome<Image> copy(std::size_t mostMonitors);

    std::mutex mutex_;
    std::unique_ptr<Connection> connection_; // guarded by mutex_
    std::atomic<bool> isOffered_ = false;
};

} // namespace mnemora::wayland
