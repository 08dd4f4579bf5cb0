#pragma once
// Whether anybody is there to look at the session: by the time since the last input
// (ext-idle-notify-v1, else the older protocol of KDE, which wlroots offers too) and by the power
// of the displays (wlr-output-power-management-unstable-v1). What keeps a screen lit, such as a
// film, counts as somebody there, since both idle protocols say so.

#include "Linux/Wayland/Connection.h"

#include <chrono>
#include <cstdint>
#include <list>
#include <memory>

struct ext_idle_notifier_v1;
struct org_kde_kwin_idle;
struct zwlr_output_power_manager_v1;

namespace mnemora::wayland {

/// On the thread of its connection, which outlives it and whose dispatch() brings the news; takes
/// the connection's follow().
class Presence {
  public:
    Presence(Connection& connection, std::chrono::milliseconds idleAfter);
    ~Presence();
    Presence(const Presence&) = delete;
    Presence& operator=(const Presence&) = delete;

    /// True while nobody has touched any seat for the time given, while all displays are off, and
    /// while there is no display. What the compositor doesn't tell counts as there.
    [[nodiscard]] bool isAway() const;

  private:
    struct Seat;
    struct Output;
    struct Listeners; // what the protocols call

    void add(const Global& global);
    void addSeat(const Global& global);
    void addOutput(const Global& global);
    void remove(std::uint32_t name);

    Connection& connection_;
    const std::uint32_t idleAfter_; // milliseconds
    ext_idle_notifier_v1* notifier_ = nullptr;
    org_kde_kwin_idle* olderNotifier_ = nullptr;
    zwlr_output_power_manager_v1* power_ = nullptr;
    std::list<Seat> seats_;     // each is known to the library by its address
    std::list<Output> outputs_; // likewise
};

} // namespace mnemora::wayland
