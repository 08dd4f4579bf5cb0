#include "Linux/Screen/X11Screen.h"

#include "Linux/Screen/SharedSegment.h"
#include "Linux/X11/Answers.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <poll.h>
#include <sys/socket.h>
#include <system_error>
#include <thread>
#include <xcb/randr.h>
#include <xcb/shm.h>
#include <xcb/xcb.h>
#include <xcb/xcbext.h>

namespace mnemora::x11 {
namespace {

using std::chrono::steady_clock;

constexpr auto patience = std::chrono::seconds(2);
constexpr std::uint32_t allPlanes = 0xFFFFFFFF;
constexpr int longestSide = 16384; // more is no screen, only memory
constexpr std::size_t mostMonitors = 64;

std::size_t sizeOf(const Monitor& place) {
    return static_cast<std::size_t>(place.width) * static_cast<std::size_t>(place.height) * 4;
}

Image imageOf(const Monitor& place, const std::uint8_t* pixels) {
    return {.width = place.width,
            .height = place.height,
            .stride = static_cast<std::size_t>(place.width) * 4,
            .pixels = std::make_shared<std::vector<std::uint8_t>>(pixels, pixels + sizeOf(place))};
}

/// Waits for bytes from the server; false once the deadline has passed.
bool waitForBytes(xcb_connection_t* connection, steady_clock::time_point deadline) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - steady_clock::now()).count();
    if (left <= 0)
        return false;
    pollfd server{.fd = xcb_get_file_descriptor(connection), .events = POLLIN, .revents = 0};
    poll(&server, 1, static_cast<int>(left));
    return true;
}

/// Takes the connection apart when it has lived too long: libxcb, once an answer has begun, waits
/// for the rest of it without a bound.
class Deadline {
  public:
    Deadline(int server, steady_clock::time_point end)
        : thread_([this, server, end] {
              std::unique_lock lock(mutex_);
              if (!ended_.wait_until(lock, end, [this] { return isOver_; }))
                  shutdown(server, SHUT_RDWR);
          }) {}
    ~Deadline() {
        {
            const std::lock_guard lock(mutex_);
            isOver_ = true;
        }
        ended_.notify_one();
        thread_.join();
    }
    Deadline(const Deadline&) = delete;
    Deadline& operator=(const Deadline&) = delete;

  private:
    std::mutex mutex_;
    std::condition_variable ended_;
    bool isOver_ = false; // guarded by mutex_
    std::thread thread_;
};

const xcb_visualtype_t* visualType(const xcb_screen_t& screen) {
    for (auto depth = xcb_screen_allowed_depths_iterator(&screen); depth.rem > 0;
         xcb_depth_next(&depth))
        for (auto visual = xcb_depth_visuals_iterator(depth.data); visual.rem > 0;
             xcb_visualtype_next(&visual))
            if (visual.data->visual_id == screen.root_visual)
                return visual.data;
    return nullptr;
}

bool hasExtension(xcb_connection_t* connection, xcb_extension_t& extension) {
    const auto* found = xcb_get_extension_data(connection, &extension);
    return found != nullptr && found->present != 0;
}

} // namespace

void X11Screen::Disconnect::operator()(xcb_connection_t* connection) const {
    xcb_disconnect(connection);
}

std::unique_ptr<X11Screen> X11Screen::open() {
    try {
        return opened();
    } catch (const std::system_error&) { // no thread to be had
        return nullptr;
    }
}

std::unique_ptr<X11Screen> X11Screen::opened() {
    int number = 0;
    Opened connection(xcb_connect(nullptr, &number));
    if (xcb_connection_has_error(connection.get()) != 0)
        return nullptr;
    // Outlives the deadline, which mustn't end another's connection of the same number.
    std::unique_ptr<X11Screen> screen;
    const Deadline deadline(xcb_get_file_descriptor(connection.get()),
                            steady_clock::now() + patience);
    const auto* shown = screenOf(connection.get(), number);
    if (shown == nullptr)
        return nullptr;
    screen.reset(new X11Screen(std::move(connection), *shown));
    // A client that the server doesn't trust gets an error instead of pixels.
    if (!screen->hasUsablePixels() || !screen->sentPicture({0, 0, 0, 1, 1}))
        return nullptr;
    return screen;
}

X11Screen::X11Screen(Opened connection, const xcb_screen_t& screen)
    : connection_(std::move(connection)), screen_(screen), root_(screen.root),
      depth_(screen.root_depth), hasSharedMemory_(hasExtension(connection_.get(), xcb_shm_id)) {
    if (hasExtension(connection_.get(), xcb_randr_id)) {
        const auto version = await<xcb_randr_query_version_reply_t>(
            xcb_randr_query_version(connection_.get(), 1, 5).sequence);
        hasMonitors_ = version && (version->major_version > 1 || version->minor_version >= 5);
    }
}

bool X11Screen::isAlive() const {
    return !silent_ && xcb_connection_has_error(connection_.get()) == 0;
}

bool X11Screen::hasUsablePixels() const {
    const auto* setup = xcb_get_setup(connection_.get());
    const auto* visual = visualType(screen_);
    if (setup->image_byte_order != XCB_IMAGE_ORDER_LSB_FIRST || visual == nullptr ||
        visual->red_mask != 0xFF0000 || visual->green_mask != 0xFF00 || visual->blue_mask != 0xFF)
        return false;
    for (auto format = xcb_setup_pixmap_formats_iterator(setup); format.rem > 0;
         xcb_format_next(&format))
        if (format.data->depth == depth_)
            return format.data->bits_per_pixel == 32;
    return false;
}

/// The reply with this number; null on an error, which is no more than an answer.
template <class T>
X11Screen::Reply<T> X11Screen::await(unsigned sequence) {
    const auto end = steady_clock::now() + patience;
    void* reply = nullptr;
    xcb_generic_error_t* error = nullptr;
    try {
        const Deadline deadline(xcb_get_file_descriptor(connection_.get()), end);
        xcb_flush(connection_.get());
        while (isAlive() && xcb_poll_for_reply(connection_.get(), sequence, &reply, &error) == 0) {
            dropEvents();
            silent_ = !waitForBytes(connection_.get(), end);
        }
    } catch (const std::system_error&) { // no thread to be had
        silent_ = true;
    }
    std::free(error);
    dropEvents();
    return Reply<T>(static_cast<T*>(reply));
}

/// Errors of requests without reply wait among the events, and what the server tells everybody.
void X11Screen::dropEvents() {
    while (Reply<xcb_generic_event_t>(xcb_poll_for_queued_event(connection_.get()))) {
    }
}

std::vector<Monitor> X11Screen::monitors() {
    const auto geometry =
        await<xcb_get_geometry_reply_t>(xcb_get_geometry(connection_.get(), root_).sequence);
    if (!geometry)
        return {};
    // A screen changes its size with its monitors; what was said at the start may be outdated.
    width_ = geometry->width;
    height_ = geometry->height;
    const auto reply = hasMonitors_
                           ? await<xcb_randr_get_monitors_reply_t>(
                                 xcb_randr_get_monitors(connection_.get(), root_, 1).sequence)
                           : nullptr;
    if (!reply)
        return {{0, 0, 0, width_, height_}};
    std::vector<Monitor> monitors;
    std::uint64_t needed = 0;
    for (auto at = xcb_randr_get_monitors_monitors_iterator(reply.get());
         at.rem > 0 && monitors.size() < mostMonitors; xcb_randr_monitor_info_next(&at)) {
        if (!holds(*reply, needed += sizeof(xcb_randr_monitor_info_t)))
            break;
        const auto& info = *at.data;
        if (!holds(*reply, needed += info.nOutput * sizeof(xcb_randr_output_t)))
            break;
        if (info.width > 0 && info.height > 0)
            monitors.insert(info.primary != 0 ? monitors.begin() : monitors.end(),
                            {info.name, info.x, info.y, info.width, info.height});
    }
    return monitors;
}

std::optional<Image> X11Screen::picture(const Monitor& place) {
    if (place.width <= 0 || place.height <= 0 || place.width > longestSide ||
        place.height > longestSide || place.left < 0 || place.top < 0 ||
        place.left + place.width > width_ || place.top + place.height > height_)
        return std::nullopt;
    auto image = hasSharedMemory_ ? sharedPicture(place) : std::nullopt;
    // A server on another machine has the extension, but can't reach our memory.
    if (!image && isAlive())
        image = sentPicture(place);
    return image;
}

std::optional<Image> X11Screen::sharedPicture(const Monitor& place) {
    auto memory = SharedSegment::create(sizeOf(place));
    if (!memory)
        return std::nullopt;
    auto* connection = connection_.get();
    const auto segment = xcb_generate_id(connection);
    xcb_shm_attach(connection, segment, memory->identifier(), 0);
    const auto reply = await<xcb_shm_get_image_reply_t>(
        xcb_shm_get_image(connection, root_, static_cast<std::int16_t>(place.left),
                          static_cast<std::int16_t>(place.top),
                          static_cast<std::uint16_t>(place.width),
                          static_cast<std::uint16_t>(place.height), allPlanes,
                          XCB_IMAGE_FORMAT_Z_PIXMAP, segment, 0)
            .sequence);
    xcb_shm_detach(connection, segment);
    xcb_flush(connection);
    if (!reply || reply->depth != depth_ || reply->size != sizeOf(place))
        return std::nullopt;
    return imageOf(place, memory->bytes().data());
}

std::optional<Image> X11Screen::sentPicture(const Monitor& place) {
    const auto reply = await<xcb_get_image_reply_t>(
        xcb_get_image(connection_.get(), XCB_IMAGE_FORMAT_Z_PIXMAP, root_,
                      static_cast<std::int16_t>(place.left), static_cast<std::int16_t>(place.top),
                      static_cast<std::uint16_t>(place.width),
                      static_cast<std::uint16_t>(place.height), allPlanes)
            .sequence);
    if (!reply || reply->depth != depth_ ||
        static_cast<std::size_t>(xcb_get_image_data_length(reply.get())) != sizeOf(place))
        return std::nullopt;
    return imageOf(place, xcb_get_image_data(reply.get()));
}

} // namespace mnemora::x11
