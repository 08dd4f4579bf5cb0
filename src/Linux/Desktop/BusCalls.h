#pragma once
// Calls and signals of a message bus with ordinary callables, all of them asynchronous: nobody
// waits for a peer. Only adapters' .cpp files include this.

#include "Linux/Desktop/GLibHandles.h"

#include <functional>
#include <string>

namespace mnemora::desktop {

/// Where a call goes.
struct BusMethod {
    std::string service;
    std::string path;
    std::string interface;
    std::string member;
};

/// What a reply brings: its arguments, or null and whether the peer took longer than allowed.
using BusReply = std::function<void(GVariant* arguments, bool timedOut)>;
/// What a signal brings: the sender's unique name, the object's path, the arguments.
using BusSignal =
    std::function<void(const std::string& sender, const std::string& path, GVariant* arguments)>;

/// Whether that can be called at all. What a peer names in its answers needn't be a name.
[[nodiscard]] bool isCallable(const std::string& service, const std::string& path);

/// Calls and hands the reply over on the calling thread's main context, or at once where nothing
/// has that name. `arguments` may be floating and is taken; a reply of another type than
/// `replyType` counts as an error.
void callBus(GDBusConnection* bus, const BusMethod& method, GVariant* arguments,
             const char* replyType, int timeoutMs, BusReply reply,
             GDBusCallFlags flags = G_DBUS_CALL_FLAGS_NONE);

/// What signals to listen to; empty texts match everything.
struct BusMatch {
    std::string sender = {};
    std::string interface = {};
    std::string member = {};
    std::string path = {};
    std::string firstArgument = {};
};

/// Hands every matching signal over on the calling thread's main context until
/// g_dbus_connection_signal_unsubscribe() is called with the number returned.
[[nodiscard]] guint listenToBus(GDBusConnection* bus, const BusMatch& match, BusSignal heard);

} // namespace mnemora::desktop
