#include "Linux/Wayland/Connection.h"

#include "Support/FileDescriptor.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <wayland-client.h>

namespace mnemora::wayland {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto patienceAtStart = 1s;
// A session has some dozens.
constexpr std::size_t maxGlobals = 4096;

std::string_view variable(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

/// For poll(2): the time left, rounded up, 0 once it is over.
int millisecondsUntil(Clock::time_point deadline) {
    if (deadline == Clock::time_point::max())
        return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 3'600'000));
}

Clock::time_point deadlineAfter(std::chrono::milliseconds patience) {
    return patience < 0ms ? Clock::time_point::max() : Clock::now() + patience;
}

/// To the compositor's socket; invalid, with errno set, where there is none. The library's own way
/// would wait for ever once a compositor that hangs has as many callers waiting as it takes.
FileDescriptor connected() {
    // Relative to the folder unless it is a path of its own (wl_display_connect(3)).
    const std::string name(variable("WAYLAND_DISPLAY"));
    const auto path =
        name.starts_with('/') ? name : std::string(variable("XDG_RUNTIME_DIR")) + '/' + name;
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return {};
    }
    path.copy(address.sun_path, path.size());
    FileDescriptor made(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const auto* any = reinterpret_cast<const sockaddr*>(&address);
    return made && connect(made.get(), any, sizeof address) == 0 ? std::move(made)
                                                                 : FileDescriptor();
}

} // namespace

bool isWaylandSession() {
    return !variable("WAYLAND_DISPLAY").empty() || variable("XDG_SESSION_TYPE") == "wayland";
}

struct Connection::Listeners {
    static void appeared(void* data, wl_registry*, std::uint32_t name, const char* interface,
                         std::uint32_t version) {
        auto* self = static_cast<Connection*>(data);
        if (self->globals_.size() >= maxGlobals)
            return;
        self->globals_.push_back({name, interface, version});
        if (self->appeared_)
            self->appeared_(self->globals_.back());
    }
    static void gone(void* data, wl_registry*, std::uint32_t name) {
        auto* self = static_cast<Connection*>(data);
        std::erase_if(self->globals_, [&](const Global& global) { return global.name == name; });
        if (self->gone_)
            self->gone_(name);
    }
    static void done(void* data, wl_callback* question, std::uint32_t) {
        wl_callback_destroy(question);
        static_cast<Connection*>(data)->question_ = nullptr;
    }

    static constexpr wl_registry_listener registry = {appeared, gone};
    static constexpr wl_callback_listener sync = {done};
};

void Connection::Disconnect::operator()(wl_display* display) const {
    wl_display_disconnect(display);
}

std::unique_ptr<Connection> Connection::open(std::string* reason) {
    const auto fail = [&](const std::string& why) {
        if (reason != nullptr)
            *reason = why;
        return nullptr;
    };
    // The library would go on to a default name, which may be another session's of the same user.
    if (variable("WAYLAND_DISPLAY").empty())
        return fail("WAYLAND_DISPLAY is not set");
    FileDescriptor socket = connected();
    // The library closes the descriptor, also when it fails.
    wl_display* display = socket ? wl_display_connect_to_fd(socket.release()) : nullptr;
    if (display == nullptr)
        return fail("cannot connect to Wayland display " +
                    std::string(variable("WAYLAND_DISPLAY")));
    std::unique_ptr<Connection> connection(new Connection(display));
    if (connection->registry_ == nullptr || !connection->roundtrip(patienceAtStart))
        return fail("the compositor doesn't answer");
    return connection;
}

Connection::Connection(wl_display* display)
    : display_(display), registry_(wl_display_get_registry(display)) {
    if (registry_ != nullptr)
        wl_registry_add_listener(registry_, &Listeners::registry, this);
}

Connection::~Connection() {
    if (question_ != nullptr)
        wl_callback_destroy(question_);
    if (registry_ != nullptr)
        wl_registry_destroy(registry_);
}

bool Connection::isAlive() const {
    return wl_display_get_error(display_.get()) == 0;
}

std::optional<Global> Connection::global(std::string_view interface) const {
    const auto found = std::find_if(globals_.begin(), globals_.end(), [&](const Global& global) {
        return global.interface == interface;
    });
    return found == globals_.end() ? std::nullopt : std::optional(*found);
}

std::vector<Global> Connection::globals(std::string_view interface) const {
    std::vector<Global> found;
    std::copy_if(globals_.begin(), globals_.end(), std::back_inserter(found),
                 [&](const Global& global) { return global.interface == interface; });
    return found;
}

void Connection::follow(std::function<void(const Global&)> appeared,
                        std::function<void(std::uint32_t name)> gone) {
    appeared_ = std::move(appeared);
    gone_ = std::move(gone);
}

void* Connection::bindAny(const Global& global, const wl_interface& interface,
                          std::uint32_t version) const {
    return wl_registry_bind(registry_, global.name, &interface, std::min(version, global.version));
}

void* Connection::bindFirst(const wl_interface& interface, std::uint32_t version) const {
    const auto found = global(interface.name);
    return found ? bindAny(*found, interface, version) : nullptr;
}

bool Connection::roundtrip(std::chrono::milliseconds patience) {
    const auto deadline = deadlineAfter(patience);
    // Questions that nobody reads would fill the socket until the library gives the connection up.
    if (!awaitAnswer(deadline))
        return false;
    question_ = wl_display_sync(display_.get());
    if (question_ == nullptr)
        return false;
    wl_callback_add_listener(question_, &Listeners::sync, this);
    return awaitAnswer(deadline);
}

bool Connection::awaitAnswer(Clock::time_point deadline) {
    while (question_ != nullptr && isAlive() && Clock::now() < deadline)
        if (!dispatch(std::chrono::milliseconds(millisecondsUntil(deadline))))
            break;
    return question_ == nullptr;
}

bool Connection::dispatch(std::chrono::milliseconds patience, int wakeUp) {
    const auto deadline = deadlineAfter(patience);
    if (wl_display_prepare_read(display_.get()) != 0)
        return wl_display_dispatch_pending(display_.get()) >= 0;
    if (!flush(deadline)) {
        wl_display_cancel_read(display_.get());
        return false;
    }
    pollfd sources[] = {{wl_display_get_fd(display_.get()), POLLIN, 0}, {wakeUp, POLLIN, 0}};
    const int ready = poll(sources, wakeUp < 0 ? 1 : 2, millisecondsUntil(deadline));
    if (ready > 0 && sources[0].revents != 0) {
        if (wl_display_read_events(display_.get()) < 0)
            return false;
    } else {
        wl_display_cancel_read(display_.get());
    }
    return wl_display_dispatch_pending(display_.get()) >= 0;
}

// What a compositor that reads nothing leaves unsent is sent at the next call.
bool Connection::flush(Clock::time_point deadline) {
    while (wl_display_flush(display_.get()) < 0) {
        if (errno != EAGAIN)
            return false;
        pollfd writable = {wl_display_get_fd(display_.get()), POLLOUT, 0};
        if (poll(&writable, 1, millisecondsUntil(deadline)) == 0)
            return true;
    }
    return true;
}

} // namespace mnemora::wayland
