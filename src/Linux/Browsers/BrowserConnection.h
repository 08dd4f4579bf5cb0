#pragma once
// One connected browser profile: its socket, its last word on what is in front, and which of our
// questions it still owes an answer to.

#include "Linux/Browsers/MessageFrames.h"
#include "Linux/Browsers/PageMessages.h"
#include "Support/FileDescriptor.h"

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace mnemora::browsers {

/// Used under the lock of the BrowserConnections that owns it, read() excepted.
class BrowserConnection {
  public:
    using Time = std::chrono::steady_clock::time_point;

    BrowserConnection(FileDescriptor socket, Time now) : socket_(std::move(socket)), since_(now) {}

    [[nodiscard]] int socket() const { return socket_.get(); }
    [[nodiscard]] Time since() const { return since_; }
    /// Absent until the host program has said which browser it serves.
    [[nodiscard]] const std::optional<std::string>& bundleIdentifier() const { return bundle_; }
    /// The last pushed state; absent before the first.
    [[nodiscard]] const std::optional<TabState>& state() const { return state_; }
    /// When the oldest question without an answer was put; absent when none is open.
    [[nodiscard]] std::optional<Time> waitingSince() const;
    [[nodiscard]] bool hasOutput() const { return !output_.empty(); }
    /// Whether so many questions are open that only a new connection is worth asking.
    [[nodiscard]] bool isStuck() const;

    /// Queues a question. False when it is stuck.
    [[nodiscard]] bool ask(std::uint64_t request, PageQuestion question, bool focused, Time now);
    /// Sends as much of the queue as the socket takes. False when the peer is gone.
    [[nodiscard]] bool send();
    /// Reads some of what has come; absent when the peer is gone or said something that is no
    /// message of ours. Without the lock, on the one thread that reads: what a peer says may take
    /// long to understand, and nobody is to wait for that.
    [[nodiscard]] std::optional<std::vector<PageMessage>> read();
    /// Takes in what was read and appends the answers to `answers`. False when the peer speaks out
    /// of turn, or serves no browser that we know.
    [[nodiscard]] bool take(std::vector<PageMessage> messages, std::vector<PageAnswer>& answers);
    /// Appends a refusal for every open question, when the connection ends.
    void abandon(std::vector<PageAnswer>& answers);

  private:
    [[nodiscard]] bool take(PageMessage message, std::vector<PageAnswer>& answers);

    FileDescriptor socket_;
    Time since_;
    FrameReader input_{longestFromBrowser}; // read() only
    std::string output_;
    std::optional<std::string> bundle_;
    std::optional<TabState> state_;
    std::map<std::uint64_t, Time> open_;
};

} // namespace mnemora::browsers
