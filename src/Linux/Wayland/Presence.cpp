#include "Linux/Wayland/Presence.h"

#include <algorithm>
#include <ext-idle-notify-v1.h>
#include <idle.h>
#include <memory>
#include <string_view>
#include <wlr-output-power-management-unstable-v1.h>

namespace mnemora::wayland {
namespace {

/// Destroys a proxy as its own interface says.
template <auto destroy>
struct Destroy {
    template <class Proxy>
    void operator()(Proxy* proxy) const {
        destroy(proxy);
    }
};
template <class Proxy, auto destroy>
using Owned = std::unique_ptr<Proxy, Destroy<destroy>>;

} // namespace

// A member made from another one comes after it, so that it goes first.
struct Presence::Seat {
    std::uint32_t name = 0;
    Owned<wl_seat, wl_seat_destroy> seat;
    Owned<ext_idle_notification_v1, ext_idle_notification_v1_destroy> notification;
    Owned<org_kde_kwin_idle_timeout, org_kde_kwin_idle_timeout_release> olderNotification;
    bool isIdle = false;
};

struct Presence::Output {
    std::uint32_t name = 0;
    Owned<wl_output, wl_output_destroy> output;
    Owned<zwlr_output_power_v1, zwlr_output_power_v1_destroy> power;
    bool isOff = false;
};

struct Presence::Listeners {
    template <class Proxy>
    static void idled(void* data, Proxy*) {
        static_cast<Seat*>(data)->isIdle = true;
    }
    template <class Proxy>
    static void resumed(void* data, Proxy*) {
        static_cast<Seat*>(data)->isIdle = false;
    }
    static void mode(void* data, zwlr_output_power_v1*, std::uint32_t mode) {
        static_cast<Output*>(data)->isOff = mode == ZWLR_OUTPUT_POWER_V1_MODE_OFF;
    }
    static void failed(void* data, zwlr_output_power_v1*) {
        auto* output = static_cast<Output*>(data);
        output->isOff = false;
        output->power.reset();
    }

    static constexpr ext_idle_notification_v1_listener notification = {
        idled<ext_idle_notification_v1>, resumed<ext_idle_notification_v1>};
    static constexpr org_kde_kwin_idle_timeout_listener olderNotification = {
        idled<org_kde_kwin_idle_timeout>, resumed<org_kde_kwin_idle_timeout>};
    static constexpr zwlr_output_power_v1_listener power = {mode, failed};
};

Presence::Presence(Connection& connection, std::chrono::milliseconds idleAfter)
    : connection_(connection), idleAfter_(static_cast<std::uint32_t>(idleAfter.count())),
      notifier_(connection.bind<ext_idle_notifier_v1>(ext_idle_notifier_v1_interface, 1)),
      power_(connection.bind<zwlr_output_power_manager_v1>(zwlr_output_power_manager_v1_interface,
                                                           1)) {
    if (notifier_ == nullptr)
        olderNotifier_ = connection.bind<org_kde_kwin_idle>(org_kde_kwin_idle_interface, 1);
    for (const char* interface : {wl_seat_interface.name, wl_output_interface.name})
        for (const Global& global : connection.globals(interface))
            add(global);
    connection.follow([this](const Global& global) { add(global); },
                      [this](std::uint32_t name) { remove(name); });
}

Presence::~Presence() {
    connection_.follow({}, {});
    seats_.clear();
    outputs_.clear();
    if (notifier_ != nullptr)
        ext_idle_notifier_v1_destroy(notifier_);
    if (olderNotifier_ != nullptr)
        org_kde_kwin_idle_destroy(olderNotifier_);
    if (power_ != nullptr)
        zwlr_output_power_manager_v1_destroy(power_);
}

bool Presence::isAway() const {
    const auto isIdle = [](const Seat& seat) { return seat.isIdle; };
    const auto isOff = [](const Output& output) { return output.isOff; };
    const bool isNobodyThere = !seats_.empty() && std::all_of(seats_.begin(), seats_.end(), isIdle);
    return isNobodyThere || std::all_of(outputs_.begin(), outputs_.end(), isOff);
}

void Presence::add(const Global& global) {
    if (global.interface == wl_seat_interface.name)
        addSeat(global);
    else if (global.interface == wl_output_interface.name)
        addOutput(global);
}

void Presence::addSeat(const Global& global) {
    if (notifier_ == nullptr && olderNotifier_ == nullptr)
        return;
    Seat& seat = seats_.emplace_back();
    seat.name = global.name;
    seat.seat.reset(connection_.bind<wl_seat>(global, wl_seat_interface, 1));
    if (notifier_ != nullptr) {
        seat.notification.reset(
            ext_idle_notifier_v1_get_idle_notification(notifier_, idleAfter_, seat.seat.get()));
        ext_idle_notification_v1_add_listener(seat.notification.get(), &Listeners::notification,
                                              &seat);
    } else {
        seat.olderNotification.reset(
            org_kde_kwin_idle_get_idle_timeout(olderNotifier_, seat.seat.get(), idleAfter_));
        org_kde_kwin_idle_timeout_add_listener(seat.olderNotification.get(),
                                               &Listeners::olderNotification, &seat);
    }
}

void Presence::addOutput(const Global& global) {
    Output& output = outputs_.emplace_back();
    output.name = global.name;
    if (power_ == nullptr)
        return;
    output.output.reset(connection_.bind<wl_output>(global, wl_output_interface, 1));
    output.power.reset(zwlr_output_power_manager_v1_get_output_power(power_, output.output.get()));
    zwlr_output_power_v1_add_listener(output.power.get(), &Listeners::power, &output);
}

void Presence::remove(std::uint32_t name) {
    seats_.remove_if([&](const Seat& seat) { return seat.name == name; });
    outputs_.remove_if([&](const Output& output) { return output.name == name; });
}

} // namespace mnemora::wayland
