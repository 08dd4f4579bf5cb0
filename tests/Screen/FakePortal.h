#pragma once
// A screen cast portal on a message bus of the test's own that does what a test wants of it,
// the wrong things above all.

#include "Linux/Desktop/GLibThread.h"

#include <functional>
#include <future>
#include <mutex>
#include <string>
#include <vector>

typedef struct _GDBusConnection GDBusConnection;
typedef struct _GDBusMethodInvocation GDBusMethodInvocation;
typedef struct _GTestDBus GTestDBus;
typedef struct _GVariant GVariant;

namespace mnemora::test {

/// In place of the session's message bus while it lives; one that starts no services.
class PrivateBus {
  public:
    PrivateBus();
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

  private:
    // Starting and ending the bus clears the session's variables; what else is of it stays.
    std::string former_;
    std::string runtimeFolder_;
    GTestDBus* bus_; // owned
};

/// Any thread.
class FakePortal {
  public:
    /// What it does from now on; texts are in GVariant's own notation.
    struct Behaviour {
        bool knowsApplications = true; ///< has the registry for host programs
        std::string hangsAt;           ///< the operation whose request gets no response
        std::string refusesAt;         ///< the one that gets the response below
        unsigned response = 1;
        std::string created = "{'session_handle': <'/session/1'>}";
        std::string started = "{'streams': <[(uint32 7, @a{sv} {})]>, 'restore_token': <'new'>}";
        bool opensRemote = true;
        unsigned sources = 7;
    };
    struct Call {
        std::string member;
        std::string arguments; ///< in GVariant's notation
    };

    /// Takes the portal's name on the bus.
    FakePortal();
    /// Leaves the bus, as a service that is killed.
    ~FakePortal();
    FakePortal(const FakePortal&) = delete;
    FakePortal& operator=(const FakePortal&) = delete;

    void behave(const std::function<void(Behaviour&)>& change);
    /// Of all operations of the portal, its requests and its sessions.
    [[nodiscard]] std::vector<Call> calls() const;
    [[nodiscard]] int count(const std::string& member) const;
    /// The arguments of the last such call; empty without one.
    [[nodiscard]] std::string last(const std::string& member) const;
    /// Answers nothing any more until it is thawed.
    void freeze();
    void thaw();
    /// Tells the client that its session has been closed.
    void closeSession();

  private:
    struct Handlers;

    void connect();
    void handle(const std::string& member, GVariant* arguments, GDBusMethodInvocation* call);
    void respond(const std::string& member, const std::string& request, const std::string& sender);
    void openRemote(GDBusMethodInvocation* call);
    std::string requestOf(GVariant* arguments, const std::string& sender);

    mutable std::mutex mutex_;
    Behaviour behaviour_;            // guarded by mutex_
    std::vector<Call> calls_;        // guarded by mutex_
    GDBusConnection* bus_ = nullptr; // owned; the thread's
    std::string client_;             // the thread's
    std::promise<void> thawed_;
    desktop::GLibThread thread_{"fake-portal"};
};

} // namespace mnemora::test
