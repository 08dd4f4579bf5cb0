#pragma once
// The windows of the session as compositors of the wlroots family list them
// (wlr-foreign-toplevel-management-unstable-v1, packaging/protocols): title, application, which
// one is active; no process, no place.

#include "Linux/Wayland/Connection.h"
#include "Linux/Wayland/ListedWindow.h"

#include <cstdint>
#include <list>
#include <memory>
#include <vector>

struct zwlr_foreign_toplevel_manager_v1;

namespace mnemora::wayland {

/// On the thread of its connection, which outlives it and whose dispatch() brings the news.
class Toplevels {
  public:
    /// Null when the compositor doesn't offer the protocol. The windows are there after two round
    /// trips.
    [[nodiscard]] static std::unique_ptr<Toplevels> create(const Connection& connection);
    ~Toplevels();
    Toplevels(const Toplevels&) = delete;
    Toplevels& operator=(const Toplevels&) = delete;

    /// The windows as the compositor last completed their description, in no order.
    [[nodiscard]] std::vector<ListedWindow> windows() const;
    /// Grows whenever a window appeared, went, or changed (see isChange).
    [[nodiscard]] std::uint64_t changes() const { return changes_; }
    /// The compositor has ended the list, or lists more windows than there can be; it stays empty
    /// then.
    [[nodiscard]] bool isFinished() const { return isFinished_; }

  private:
    struct Handle;
    struct Listeners; // what the protocol calls

    explicit Toplevels(zwlr_foreign_toplevel_manager_v1* manager);
    void giveUp();

    zwlr_foreign_toplevel_manager_v1* manager_; // owned
    std::list<Handle> handles_;                 // each is known to the library by its address
    std::uint32_t lastNumber_ = 0;
    std::uint64_t changes_ = 0;
    bool isFinished_ = false;
};

} // namespace mnemora::wayland
