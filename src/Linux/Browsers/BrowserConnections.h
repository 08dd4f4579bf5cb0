#pragma once
// All browsers that are connected through their extension: the socket that their host programs
// connect to, and questions put to them. A thread of its own does all reading and writing.

#include "Linux/Browsers/BrowserConnection.h"
#include "Linux/Browsers/PageSocket.h"

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <poll.h>
#include <span>
#include <string>
#include <thread>

namespace mnemora::browsers {

/// Any thread.
class BrowserConnections {
  public:
    using Duration = std::chrono::milliseconds;

    /// Listens at `socket` for processes of this user that run the executable `hostProgram` (a
    /// resolved path). Null when that is not possible here.
    [[nodiscard]] static std::unique_ptr<BrowserConnections>
    create(const std::filesystem::path& socket, std::filesystem::path hostProgram);
    ~BrowserConnections();
    BrowserConnections(const BrowserConnections&) = delete;
    BrowserConnections& operator=(const BrowserConnections&) = delete;

    /// Whether the extension of a browser with this identifier is connected.
    [[nodiscard]] bool has(const std::string& bundleIdentifier) const;
    /// Asks every connected profile of the browser for the page of its window with the focus: at
    /// most one has it. A refusal when none has; absent when nobody answers within `patience`.
    [[nodiscard]] std::optional<PageAnswer> askFocused(const std::string& bundleIdentifier,
                                                       PageQuestion question, Duration patience);
    /// Asks the profile used last for the address in its window focused last; otherwise as
    /// askFocused.
    [[nodiscard]] std::optional<PageAnswer> askLastUsed(const std::string& bundleIdentifier,
                                                        Duration patience);
    /// What the browser pushed last (of several profiles: the one with the focus, else the one
    /// used last), without asking it. Absent where a question is open for longer than `patience`:
    /// that browser hangs, and what it said may no longer be so.
    [[nodiscard]] std::optional<TabState> lastState(const std::string& bundleIdentifier,
                                                    Duration patience) const;

  private:
    struct Question {
        std::uint64_t request;
        std::size_t unanswered = 0;
        std::optional<PageAnswer> answer;
    };

    BrowserConnections(PageSocket socket, std::filesystem::path hostProgram, FileDescriptor wake);
    void run();
    [[nodiscard]] std::vector<pollfd> toPoll() const;
    void serve(const std::vector<pollfd>& polled);
    using Heard = std::vector<std::optional<std::vector<PageMessage>>>;
    [[nodiscard]] Heard readConnections(std::span<const pollfd> polled);
    void serveConnections(Heard heard);
    void admit();
    void conclude(const std::vector<PageAnswer>& answers);
    [[nodiscard]] std::optional<PageAnswer> ask(const std::vector<BrowserConnection*>& whom,
                                                PageQuestion question, bool focused,
                                                Duration patience,
                                                std::unique_lock<std::mutex>& lock);
    [[nodiscard]] std::vector<BrowserConnection*> connectionsOf(const std::string& bundle) const;
    void wake() const;

    const PageSocket socket_;
    const std::filesystem::path hostProgram_;
    const FileDescriptor wake_;
    mutable std::mutex mutex_;
    std::condition_variable answered_;
    std::list<std::unique_ptr<BrowserConnection>> connections_; // guarded by mutex_
    std::list<Question> questions_;                             // guarded by mutex_
    std::uint64_t lastRequest_ = 0;                             // guarded by mutex_
    bool ending_ = false;                                       // guarded by mutex_
    BrowserConnection::Time admitAgain_{};                      // thread_ only
    std::thread thread_;                                        // last: it uses all of the above
};

} // namespace mnemora::browsers
