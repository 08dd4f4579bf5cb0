#pragma once
// A connection to the compositor of the session, with what it offers. Each adapter has one of its
// own and uses it on its own thread; every operation is bounded in time, so a compositor that
// hangs holds nobody up. Only adapters' .cpp files use the library's types.

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct wl_callback;
struct wl_display;
struct wl_interface;
struct wl_registry;

namespace mnemora::wayland {

/// Something that the compositor offers (wl_registry.global of the Wayland protocol,
/// https://wayland.freedesktop.org/docs/html/apa.html).
struct Global {
    std::uint32_t name = 0;
    std::string interface;
    std::uint32_t version = 0;
};

/// Whether this process belongs to a Wayland session.
[[nodiscard]] bool isWaylandSession();

/// One thread at a time. Proxies made through it have to be destroyed before it is.
class Connection {
  public:
    /// To the compositor that the environment names, its globals known; null when there is none or
    /// it doesn't answer within a second, with the cause in `reason` where given.
    [[nodiscard]] static std::unique_ptr<Connection> open(std::string* reason = nullptr);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// False once the compositor has gone or broke the protocol; nothing comes back then, and a
    /// new connection has to be opened.
    [[nodiscard]] bool isAlive() const;
    [[nodiscard]] wl_display* display() const { return display_.get(); }

    /// The first global of this interface; absent when the compositor has none.
    [[nodiscard]] std::optional<Global> global(std::string_view interface) const;
    /// All of them, in the order in which they appeared.
    [[nodiscard]] std::vector<Global> globals(std::string_view interface) const;
    /// Calls `appeared` for each global that comes later and `gone` with the name of each one that
    /// goes, from inside roundtrip() and dispatch().
    void follow(std::function<void(const Global&)> appeared,
                std::function<void(std::uint32_t name)> gone);

    /// Binds a global at its own version or `version`, whichever is lower: `Proxy` is the type
    /// that `interface` describes. The caller destroys it; null when memory is short.
    template <class Proxy>
    [[nodiscard]] Proxy* bind(const Global& global, const wl_interface& interface,
                              std::uint32_t version) const {
        return static_cast<Proxy*>(bindAny(global, interface, version));
    }
    /// The same for the first global of the interface; null when there is none.
    template <class Proxy>
    [[nodiscard]] Proxy* bind(const wl_interface& interface, std::uint32_t version) const {
        return static_cast<Proxy*>(bindFirst(interface, version));
    }

    /// Sends what is waiting and handles events until the compositor has handled all requests made
    /// so far. False when it is gone or takes longer; one that hangs is asked no second question.
    [[nodiscard]] bool roundtrip(std::chrono::milliseconds patience);
    /// Sends what is waiting and handles the events that have come, waiting for some at most
    /// `patience` (negative: for ever), or until `wakeUp` (where given) is readable. False when the
    /// compositor is gone.
    [[nodiscard]] bool dispatch(std::chrono::milliseconds patience, int wakeUp = -1);

  private:
    struct Disconnect {
        void operator()(wl_display* display) const;
    };
    struct Listeners; // what the registry calls

    Connection(wl_display* display);
    [[nodiscard]] void* bindAny(const Global& global, const wl_interface& interface,
                                std::uint32_t version) const;
    [[nodiscard]] void* bindFirst(const wl_interface& interface, std::uint32_t version) const;
    [[nodiscard]] bool flush(std::chrono::steady_clock::time_point deadline);
    [[nodiscard]] bool awaitAnswer(std::chrono::steady_clock::time_point deadline);

    std::unique_ptr<wl_display, Disconnect> display_;
    wl_registry* registry_ = nullptr; // owned
    wl_callback* question_ = nullptr; // of a round trip, not yet answered; owned
    std::vector<Global> globals_;
    std::function<void(const Global&)> appeared_;
    std::function<void(std::uint32_t)> gone_;
};

} // namespace mnemora::wayland
