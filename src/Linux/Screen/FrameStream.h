#pragma once
// Pictures from a screen cast that the desktop granted, one at a time.

#include "Platform/ScreenCapture.h"

#include "Support/FileDescriptor.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace mnemora {

/// An open screen cast that rests between pictures. Any thread, one at a time.
struct FrameStream {
    virtual ~FrameStream() = default;

    /// A picture of what is on the screen now. Where nothing has changed since the last one the
    /// compositor may send none; the last one is given again then, unless it came before
    /// `changedAt`, when the windows last changed: a source that is slow or hangs looks the same,
    /// so there is a picture without pixels. A failure when none comes within `patience`.
    [[nodiscard]] virtual Outcome<Image>
    picture(std::chrono::milliseconds patience,
            std::chrono::steady_clock::time_point changedAt) = 0;
    /// False once the cast has ended; no picture comes any more.
    [[nodiscard]] virtual bool isAlive() const = 0;
};

/// Where the frames of a cast come from.
struct CastSource {
    FileDescriptor remote;  ///< a connection to the media server
    std::uint32_t node = 0; ///< what it offers there
    /// It sends what changes while the cast goes on and forgets what changed while it rested; the
    /// portals of the wlroots family do.
    bool sendsChangesOnly = false;
};

/// Opens a cast; null with the cause in `reason` where that fails. May take some milliseconds.
using FrameStreamOpener =
    std::function<std::shared_ptr<FrameStream>(CastSource source, std::string& reason)>;

/// PipeWire's, from the module that is opened at the first call; an empty function, with the
/// cause in `reason`, where PipeWire isn't installed.
[[nodiscard]] FrameStreamOpener loadFrameStreamOpener(std::string& reason);

} // namespace mnemora
