#include "Linux/Sound/ServerConnection.h"

#include <string_view>
#include <utility>

namespace mnemora::pulse {
namespace {

/// Between attempts to connect or to open a device: short enough that a restarted server costs
/// a few words only, long enough to cost nothing where there is none.
constexpr pa_usec_t pauseMicroseconds = 500'000;

// PipeWire (0.3.65) tells a change of the default devices to nobody but a client that connects at
// that moment, when there is one: a connection then goes on with the old ones for good, whatever it
// asks. A new connection is told the truth. Devices mostly change when one comes or goes.
constexpr pa_usec_t checkAfterEvent = 1'000'000;
constexpr pa_usec_t checkAnyway = 10'000'000;
constexpr pa_usec_t patienceOfCheck = 3'000'000;

PropertiesHandle clientProperties() {
    PropertiesHandle properties(pa_proplist_new());
    pa_proplist_sets(properties.get(), PA_PROP_APPLICATION_NAME, "Mnemora");
    pa_proplist_sets(properties.get(), PA_PROP_APPLICATION_ID, "app.mnemora.Mnemora");
    return properties;
}

} // namespace

std::unique_ptr<ServerConnection> ServerConnection::open(Events events) {
    std::unique_ptr<ServerConnection> connection(new ServerConnection(std::move(events)));
    if (!connection->loop_ || pa_threaded_mainloop_start(connection->loop_.get()) < 0)
        return nullptr;
    pa_threaded_mainloop_lock(connection->loop_.get());
    connection->connect();
    pa_threaded_mainloop_unlock(connection->loop_.get());
    return connection;
}

ServerConnection::ServerConnection(Events events)
    : events_(std::move(events)), loop_(pa_threaded_mainloop_new()) {
    if (loop_)
        pa_threaded_mainloop_set_name(loop_.get(), "sound");
}

ServerConnection::~ServerConnection() {
    if (!loop_)
        return;
    stop();
    cancelWaiting();
    if (nextCheck_ != nullptr)
        pa_threaded_mainloop_get_api(loop_.get())->time_free(nextCheck_);
    second_.reset();
    context_.reset();
}

void ServerConnection::stop() {
    pa_threaded_mainloop_stop(loop_.get());
}

void ServerConnection::connect() {
    context_.reset(pa_context_new_with_proplist(pa_threaded_mainloop_get_api(loop_.get()), nullptr,
                                                clientProperties().get()));
    if (!context_)
        return;
    pa_context_set_state_callback(
        context_.get(),
        [](pa_context*, void* self) { static_cast<ServerConnection*>(self)->stateChanged(); },
        this);
    // A server that we started would be ours to look after.
    if (pa_context_connect(context_.get(), nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0 &&
        waiting_ == nullptr)
        fail(reason());
}

void ServerConnection::stateChanged() {
    const auto state = pa_context_get_state(context_.get());
    if (state == PA_CONTEXT_READY)
        ready();
    else if (!PA_CONTEXT_IS_GOOD(state))
        fail(reason());
}

void ServerConnection::ready() {
    pa_context_set_subscribe_callback(
        context_.get(),
        [](pa_context*, pa_subscription_event_type_t event, uint32_t, void* self) {
            // Sources change whenever a program turns their gain; only their coming and going
            // counts. A sink changes when headphones are plugged in.
            const auto facility = event & PA_SUBSCRIPTION_EVENT_FACILITY_MASK;
            const auto type = event & PA_SUBSCRIPTION_EVENT_TYPE_MASK;
            if (facility != PA_SUBSCRIPTION_EVENT_SOURCE || type != PA_SUBSCRIPTION_EVENT_CHANGE)
                static_cast<ServerConnection*>(self)->refresh();
        },
        this);
    const auto mask =
        PA_SUBSCRIPTION_MASK_SERVER | PA_SUBSCRIPTION_MASK_SINK | PA_SUBSCRIPTION_MASK_SOURCE;
    forget(pa_context_subscribe(context_.get(), static_cast<pa_subscription_mask_t>(mask), nullptr,
                                nullptr));
    refresh();
}

void ServerConnection::refresh() {
    const auto answer = [](pa_context*, const pa_server_info* facts, void* self) {
        auto& connection = *static_cast<ServerConnection*>(self);
        if (facts != nullptr)
            connection.told(*facts);
    };
    forget(pa_context_get_server_info(context_.get(), answer, this));
}

void ServerConnection::told(const pa_server_info& facts) {
    told_ = Defaults::of(facts);
    const std::string_view server = facts.server_name != nullptr ? facts.server_name : "";
    // One that is due sooner stays: events without end would put it off for ever.
    const bool isDueSooner = nextCheck_ != nullptr && due_ <= pa_rtclock_now() + checkAfterEvent;
    if (server.find("PipeWire") != std::string_view::npos && !second_ && !isDueSooner)
        checkIn(checkAfterEvent, &ServerConnection::beginCheck);
    events_.facts(*this, facts);
}

bool ServerConnection::isLoopThread() const {
    return pa_threaded_mainloop_in_thread(loop_.get()) != 0;
}

void ServerConnection::refreshLater() {
    later(&ServerConnection::refresh);
}

void ServerConnection::fail(const std::string& why) {
    events_.lost(why);
    later(&ServerConnection::connect);
}

void ServerConnection::later(void (ServerConnection::*step)()) {
    cancelWaiting();
    step_ = step;
    const auto due = [](pa_mainloop_api*, pa_time_event*, const timeval*, void* data) {
        auto& self = *static_cast<ServerConnection*>(data);
        self.cancelWaiting();
        (self.*self.step_)();
    };
    waiting_ =
        pa_context_rttime_new(context_.get(), pa_rtclock_now() + pauseMicroseconds, due, this);
}

void ServerConnection::cancelWaiting() {
    if (waiting_ != nullptr)
        pa_threaded_mainloop_get_api(loop_.get())->time_free(std::exchange(waiting_, nullptr));
}

ServerConnection::Defaults ServerConnection::Defaults::of(const pa_server_info& facts) {
    const auto text = [](const char* name) { return std::string(name != nullptr ? name : ""); };
    return {text(facts.default_source_name), text(facts.default_sink_name)};
}

void ServerConnection::beginCheck() {
    checkIn(patienceOfCheck, &ServerConnection::endCheck);
    heard_.reset();
    second_.reset(pa_context_new_with_proplist(pa_threaded_mainloop_get_api(loop_.get()), nullptr,
                                               clientProperties().get()));
    if (!second_)
        return;
    const auto changed = [](pa_context* second, void* self) {
        const auto answer = [](pa_context*, const pa_server_info* facts, void* checking) {
            static_cast<ServerConnection*>(checking)->checkAnswered(facts);
        };
        if (pa_context_get_state(second) == PA_CONTEXT_READY)
            forget(pa_context_get_server_info(second, answer, self));
    };
    pa_context_set_state_callback(second_.get(), changed, this);
    pa_context_connect(second_.get(), nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr);
}

// A context's own callback is no place to let it go.
void ServerConnection::checkAnswered(const pa_server_info* facts) {
    if (facts != nullptr)
        heard_ = Defaults::of(*facts);
    checkIn(0, &ServerConnection::endCheck);
}

void ServerConnection::endCheck() {
    second_.reset();
    // A change that is still under way would differ once.
    const bool differs = heard_ && *heard_ != told_;
    const bool isMissed = differs && std::exchange(differed_, differs);
    differed_ = differs && !isMissed;
    if (isMissed && waiting_ == nullptr) {
        if (events_.renewed)
            events_.renewed();
        connect();
    }
    checkIn(differs ? checkAfterEvent : checkAnyway, &ServerConnection::beginCheck);
}

void ServerConnection::checkIn(pa_usec_t microseconds, void (ServerConnection::*step)()) {
    checkStep_ = step;
    if (nextCheck_ != nullptr)
        pa_threaded_mainloop_get_api(loop_.get())->time_free(nextCheck_);
    const auto due = [](pa_mainloop_api* api, pa_time_event*, const timeval*, void* data) {
        auto& self = *static_cast<ServerConnection*>(data);
        api->time_free(std::exchange(self.nextCheck_, nullptr));
        (self.*self.checkStep_)();
    };
    due_ = pa_rtclock_now() + microseconds;
    nextCheck_ = pa_context_rttime_new(context_.get(), due_, due, this);
}

std::string ServerConnection::reason() const {
    return pa_strerror(pa_context_errno(context_.get()));
}

} // namespace mnemora::pulse
