#pragma once
// A connection to the sound server, PulseAudio or PipeWire's stand-in for it, that comes back when
// the server does and tells which devices are the default ones.
//
// The client library's asynchronous API is described at
// https://www.freedesktop.org/software/pulseaudio/doxygen/async.html

#include "Linux/Sound/PulseHandles.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace mnemora::pulse {

/// Has a thread of its own, on which every event is handed out, none after the destructor.
/// Destroyed on any thread but that one.
class ServerConnection {
  public:
    struct Events {
        /// The server's facts, the names of the default devices among them: after connecting, after
        /// each change of a default or a sink, a device that comes or goes, and after
        /// refreshLater().
        std::function<void(ServerConnection&, const pa_server_info&)> facts;
        /// The connection ended, or an attempt failed; another one follows by itself. What belongs
        /// to context() is to be let go.
        std::function<void(const std::string& reason)> lost;
        /// The same, but the server is well: this connection had missed a change.
        std::function<void()> renewed = {};
    };

    /// Begins to connect. Null when there is no thread to be had.
    [[nodiscard]] static std::unique_ptr<ServerConnection> open(Events events);
    ~ServerConnection();
    ServerConnection(const ServerConnection&) = delete;
    ServerConnection& operator=(const ServerConnection&) = delete;

    /// The connected context. Loop thread, inside or after `facts` and before `lost`.
    [[nodiscard]] pa_context* context() const { return context_.get(); }
    /// Ends the loop thread, and with it all events; what belongs to context() can be let go then.
    /// Any thread but that one.
    void stop();
    [[nodiscard]] bool isLoopThread() const;
    /// Asks for the facts once more, in a while. Loop thread.
    void refreshLater();
    /// Why the last call failed, in words. Loop thread.
    [[nodiscard]] std::string reason() const;

  private:
    explicit ServerConnection(Events events);

    void connect();
    void stateChanged();
    void ready();
    void refresh();
    void fail(const std::string& why);
    void told(const pa_server_info& facts);
    void beginCheck();
    void checkAnswered(const pa_server_info* facts);
    void endCheck();
    /// Runs `step` of the check after that time, in place of what waits.
    void checkIn(pa_usec_t microseconds, void (ServerConnection::*step)());
    /// Runs `step` on the loop thread after the pause between attempts, in place of what waits.
    void later(void (ServerConnection::*step)());
    void cancelWaiting();

    const Events events_;
    MainloopHandle loop_;
    ContextHandle context_;
    pa_time_event* waiting_ = nullptr;
    void (ServerConnection::*step_)() = nullptr; // what waiting_ will run

    /// Names of the default devices.
    struct Defaults {
        std::string source;
        std::string sink;
        bool operator==(const Defaults&) const = default;
        static Defaults of(const pa_server_info& facts);
    };
    // The check whether this connection knows what a new one is told; loop thread.
    Defaults told_;                 // by this connection
    std::optional<Defaults> heard_; // by the new one
    bool differed_ = false;         // also at the last check
    ContextHandle second_;          // during a check
    pa_time_event* nextCheck_ = nullptr;
    pa_usec_t due_ = 0;                               // when nextCheck_ is, by pa_rtclock_now()
    void (ServerConnection::*checkStep_)() = nullptr; // what nextCheck_ will run
};

} // namespace mnemora::pulse
