#pragma once
// A compositor's side of the protocols that the adapters speak, for sessions that can't be run
// here and moments that a real one can't be made to show.

#include "Support/FileDescriptor.h"
#include "fakes/ScopedVariable.h"
#include "fakes/TemporaryHome.h"

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct wl_client;
struct wl_display;
struct wl_event_loop;
struct wl_resource;

namespace mnemora::wayland {

/// Runs from construction to destruction on a socket that WAYLAND_DISPLAY names meanwhile.
class FakeCompositor {
  public:
    struct Offer {
        bool toplevels = true;
        bool idle = false;  // ext-idle-notify-v1
        bool power = false; // wlr-output-power-management-unstable-v1, with one display
        bool screencopy = false;
    };
    /// What it says of a copy of its screen, which is white, and does to who wants one.
    struct Copy {
        std::uint32_t format = 1; // XRGB8888
        std::uint32_t width = 2, height = 2, stride = 8;
        std::uint32_t strideLater = 0; // said again once the copy is made; 0: not
        bool tells = true, fails = false;
        bool takesMemoryAway = false; // instead of drawing
    };
    explicit FakeCompositor(Offer offer);
    ~FakeCompositor();
    FakeCompositor(const FakeCompositor&) = delete;
    FakeCompositor& operator=(const FakeCompositor&) = delete;

    /// Describes a window anew, or a new one; `states` as the protocol numbers them.
    void describe(const std::string& window, const std::string& title,
                  const std::string& application, const std::vector<std::uint32_t>& states);
    /// Opens that many windows without a word of what they are.
    void openUntold(int count);
    void close(const std::string& window);
    void setCopy(const Copy& copy);
    void setIdle(bool isIdle);
    void setPower(bool isOn);
    /// Answers nothing for as long as the returned lock lives.
    [[nodiscard]] std::unique_lock<std::mutex> hang() { return std::unique_lock(mutex_); }

  private:
    struct Bindings; // what clients call

    void copyTo(wl_resource* frame);
    void run();
    void invoke(const std::function<void()>& job);

    const test::TemporaryHome home_;
    const test::ScopedVariable runtime_{"XDG_RUNTIME_DIR", home_.path()}; // holds the socket
    const test::ScopedVariable name_{"WAYLAND_DISPLAY", std::nullopt};
    std::mutex mutex_; // held by the thread while it serves, and by hang()
    wl_display* display_ = nullptr;
    wl_event_loop* loop_ = nullptr;
    wl_resource* manager_ = nullptr;
    wl_resource* notification_ = nullptr;
    wl_resource* power_ = nullptr;
    std::map<std::string, wl_resource*> windows_;
    Copy copy_;
    FileDescriptor memory_; // the client's last
    bool isOver_ = false;   // guarded by mutex_
    std::thread thread_;
};

} // namespace mnemora::wayland
