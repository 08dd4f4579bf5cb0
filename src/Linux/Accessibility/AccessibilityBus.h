#pragma once
// The connection to the accessibility bus: found through the session's bus, only where it is on,
// and made again when it was lost. Only adapters' .cpp files include this.

#include "Linux/Desktop/BusCalls.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace mnemora::atspi {

/// An object on the bus: a program's unique name and a path.
struct ObjectName {
    std::string service;
    std::string path;

    auto operator<=>(const ObjectName&) const = default;
};

/// Used on one thread with a main context of its own; every call is answered there.
class AccessibilityBus {
  public:
    /// What is told to the owner of the bus.
    struct Handlers {
        /// The registry answers from now on.
        std::function<void()> connected;
        /// The bus is off or lost; also told once when there is none to begin with.
        std::function<void()> disconnected;
        /// A window of this program became active or ceased to be.
        std::function<void(const std::string& service)> windowsChanged;
        /// The program left the bus.
        std::function<void(const std::string& service)> left;
    };

    explicit AccessibilityBus(Handlers handlers) : handlers_(std::move(handlers)) {}
    void start();

    [[nodiscard]] GDBusConnection* connection() const { return bus_.get(); }

    /// The programs on the bus, at most maxPrograms; none when the registry doesn't answer.
    void programs(std::function<void(const std::vector<ObjectName>&)> found);
    /// The children of an object, at most maxChildren; absent children (null) with `timedOut`.
    void children(const ObjectName& object,
                  std::function<void(const std::vector<ObjectName>*, bool timedOut)> found);
    /// The process at the other end of a connection; 0 when it is gone.
    void process(const std::string& service, std::function<void(int)> found);
    /// Name and state of a window; both may be missing.
    void name(const ObjectName& window, std::function<void(const std::string*)> found);
    void isActive(const ObjectName& window, std::function<void(bool)> found);

    static constexpr std::size_t maxChildren = 64;
    static constexpr std::size_t maxPrograms = 1024;
    /// How long a program may take for one answer before it counts as hung.
    static constexpr int patienceMs = 700;

  private:
    void childrenUpTo(std::size_t most, const ObjectName& object,
                      std::function<void(const std::vector<ObjectName>*, bool timedOut)> found);
    void askWhetherEnabled();
    void setEnabled(bool enabled);
    void askAddress();
    void connect(const std::string& address);
    void haveConnection();
    void listen();
    void lose();
    void retryLater();

    Handlers handlers_;
    bool isEnabled_ = false;
    bool isConnecting_ = false;
    desktop::GRef<GDBusConnection> session_;
    desktop::GRef<GDBusConnection> bus_;
};

} // namespace mnemora::atspi
