#pragma once
// The accessible objects of other programs (AT-SPI 2), read with plain bus calls on the calling
// thread, all of them together within one time limit. The interfaces are those of
// https://gnome.pages.gitlab.gnome.org/at-spi2-core/devel-docs/doc-org.a11y.atspi.Accessible.html

#include "Linux/Desktop/GLibHandles.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace mnemora::browsers {

/// An object on the accessibility bus.
struct AccessibleObject {
    std::string service;
    std::string path;
};

/// One thread. Only adapters' .cpp files include this.
class AccessibleTree {
  public:
    using Time = std::chrono::steady_clock::time_point;

    /// Connects; absent when the accessibility bus is off or can't be reached. Never starts it.
    [[nodiscard]] static std::optional<AccessibleTree> connect(Time deadline);

    /// True once something was left unanswered: what was read since is incomplete.
    [[nodiscard]] bool late() const { return late_; }

    /// The programs on the bus.
    [[nodiscard]] std::vector<AccessibleObject> programs();
    /// The process behind an object; 0 when it is gone.
    [[nodiscard]] int processOf(const AccessibleObject& object);
    [[nodiscard]] std::vector<AccessibleObject> children(const AccessibleObject& object);
    /// The root of another program's objects inside this one (an embedding socket has one, which
    /// GTK leaves out of its children); absent without one.
    [[nodiscard]] std::optional<AccessibleObject> plug(const AccessibleObject& socket);
    /// A number of AtspiRole; 0 when unknown.
    [[nodiscard]] std::uint32_t role(const AccessibleObject& object);
    /// The set of AtspiStateType, bit by bit.
    [[nodiscard]] std::uint64_t states(const AccessibleObject& object);
    /// An attribute of a document; empty without one.
    [[nodiscard]] std::string documentAttribute(const AccessibleObject& object, const char* name);
    /// An object's text in UTF-8, U+FFFC in the place of each object within; empty without one.
    [[nodiscard]] std::string text(const AccessibleObject& object);
    /// The object that the n-th U+FFFC of a text stands for: the n-th link of its hypertext, not
    /// its n-th child, because runs of plain text are children too.
    [[nodiscard]] std::optional<AccessibleObject> embedded(const AccessibleObject& object,
                                                           int number);

  private:
    AccessibleTree(desktop::GRef<GDBusConnection> bus, Time deadline)
        : bus_(std::move(bus)), deadline_(deadline) {}

    [[nodiscard]] desktop::GValueRef call(const AccessibleObject& object, const char* interface,
                                          const char* member, GVariant* arguments,
                                          const char* replyType);

    desktop::GRef<GDBusConnection> bus_;
    Time deadline_;
    bool late_ = false;
};

} // namespace mnemora::browsers
