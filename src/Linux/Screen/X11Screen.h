#pragma once
// The picture of an X11 screen over a connection of its own, with bounded waits: a server that
// doesn't answer within two seconds counts as gone.

#include "Platform/ScreenCapture.h"

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct xcb_connection_t;
struct xcb_screen_t;

namespace mnemora::x11 {

/// A part of the screen that a person sees as one display.
struct Monitor {
    std::uint32_t name = 0; // the server's number for it, an atom
    int left = 0;
    int top = 0;
    int width = 0;
    int height = 0;

    bool operator==(const Monitor&) const = default;
};

/// One thread at a time.
class X11Screen {
  public:
    /// To the display of the environment; null when there is none, its pixels aren't 32 bits wide
    /// in the order blue, green, red, or they may not be read.
    [[nodiscard]] static std::unique_ptr<X11Screen> open();

    /// False once the server is gone or has not answered in time.
    [[nodiscard]] bool isAlive() const;
    /// The lit monitors, the primary one first; the whole screen as one where the server knows
    /// none. Monitors without pixels are left out.
    [[nodiscard]] std::vector<Monitor> monitors();
    /// The pixels of the rectangle; absent when it isn't wholly on the screen (any more), is
    /// larger than any screen, or the server fails.
    [[nodiscard]] std::optional<Image> picture(const Monitor& place);

  private:
    struct Disconnect {
        void operator()(xcb_connection_t* connection) const;
    };
    struct Free {
        void operator()(void* memory) const { std::free(memory); }
    };
    template <class T>
    using Reply = std::unique_ptr<T, Free>;

    using Opened = std::unique_ptr<xcb_connection_t, Disconnect>;

    static std::unique_ptr<X11Screen> opened();
    X11Screen(Opened connection, const xcb_screen_t& screen);
    [[nodiscard]] bool hasUsablePixels() const;
    template <class T>
    Reply<T> await(unsigned sequence);
    void dropEvents();
    std::optional<Image> sharedPicture(const Monitor& place);
    std::optional<Image> sentPicture(const Monitor& place);

    Opened connection_;
    const xcb_screen_t& screen_; // the connection's
    std::uint32_t root_ = 0;
    std::uint8_t depth_ = 0;
    bool hasSharedMemory_ = false;
    int width_ = 0;
    int height_ = 0;
    bool hasMonitors_ = false;
    bool silent_ = false; // an answer did not come in time
};

} // namespace mnemora::x11
