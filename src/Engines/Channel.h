#pragma once
// How the program and an engine's child process talk: frames over a connected pair of stream
// sockets. A frame is its payload's length and its kind, 32 bits each in the machine's own byte
// order, then the payload; a descriptor may travel with it. Both ends bound what they accept, and
// neither trusts the other's bytes.

#include "Support/FileDescriptor.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace mnemora::engines {

/// What a frame is about.
enum class FrameKind : std::uint32_t {
    ready = 1,       ///< child: loaded and locked in; no payload
    unavailable = 2, ///< child: can't work; the payload is the reason
    picture = 3,     ///< parent: recognise the text of the attached picture
    lines = 4,       ///< child: the text recognised
    sound = 5,       ///< parent: more of a stream's sound
    endOfSound = 6,  ///< parent: recognise what there is of a stream, then forget it
    closeStream = 7, ///< parent: forget a stream
    speaking = 8,    ///< child: somebody began to speak in a stream
    utterance = 9,   ///< child: something said in a stream
    soundEnded = 10, ///< child: endOfSound is done
};

struct Frame {
    FrameKind kind{};
    std::string payload;
    FileDescriptor attachment;
};

/// A longer payload ends the conversation. The text of a screen takes some kilobytes.
inline constexpr std::size_t maxPayload = 4 * 1024 * 1024;

using Deadline = std::optional<std::chrono::steady_clock::time_point>;

/// Sends a frame, with the descriptor where it is not -1. False when the other end is gone or
/// hasn't taken the frame by the deadline (absent: waits as long as it takes).
[[nodiscard]] bool sendFrame(int socket, FrameKind kind, std::string_view payload, int attachment,
                             const Deadline& deadline);

/// The next frame; absent when the other end is gone, sends what is no frame, or hasn't sent a
/// whole one by the deadline.
[[nodiscard]] std::optional<Frame> receiveFrame(int socket, const Deadline& deadline);

} // namespace mnemora::engines
