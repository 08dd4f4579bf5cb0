#include "Linux/Screen/Screencopy.h"

#include "Linux/Screen/FrameLayout.h"
#include "Linux/Wayland/Connection.h"
#include "Support/FileDescriptor.h"

#include <fcntl.h>
#include <optional>
#include <sys/mman.h>
#include <unistd.h>
#include <wayland-client.h>
#include <wlr-screencopy-unstable-v1.h>

namespace mnemora::wayland {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto patience = 2s;
constexpr std::uint32_t shownVersion = 1; // of wl_output and wl_shm
constexpr std::uint32_t copyVersion = 3;
constexpr std::uint32_t versionWithBufferDone = 3;
constexpr std::int32_t withoutCursor = 0;
// A row may end in unused bytes, but not in more than it has pixels.
constexpr std::uint64_t maxBytes = 2 * maxFrameBytes;

template <auto destroy>
struct Destroy {
    template <class T>
    void operator()(T* proxy) const {
        destroy(proxy);
    }
};
using Output = std::unique_ptr<wl_output, Destroy<wl_output_destroy>>;
using Memory = std::unique_ptr<wl_shm, Destroy<wl_shm_destroy>>;
using Pool = std::unique_ptr<wl_shm_pool, Destroy<wl_shm_pool_destroy>>;
using Buffer = std::unique_ptr<wl_buffer, Destroy<wl_buffer_destroy>>;
using Copier =
    std::unique_ptr<zwlr_screencopy_manager_v1, Destroy<zwlr_screencopy_manager_v1_destroy>>;
using Frame = std::unique_ptr<zwlr_screencopy_frame_v1, Destroy<zwlr_screencopy_frame_v1_destroy>>;

/// Memory that the compositor writes into and can't take away, which would end whoever reads it.
class SharedMemory {
  public:
    explicit SharedMemory(std::size_t size)
        : file_(memfd_create("screen", MFD_CLOEXEC | MFD_ALLOW_SEALING)), size_(size) {
        if (!file_ || ftruncate(file_.get(), static_cast<off_t>(size)) != 0 ||
            fcntl(file_.get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) != 0)
            return;
        void* mapped = mmap(nullptr, size, PROT_READ, MAP_SHARED, file_.get(), 0);
        bytes_ = mapped == MAP_FAILED ? nullptr : static_cast<const std::uint8_t*>(mapped);
    }
    ~SharedMemory() {
        if (bytes_ != nullptr)
            munmap(const_cast<std::uint8_t*>(bytes_), size_);
    }
    SharedMemory(const SharedMemory&) = delete;
    SharedMemory& operator=(const SharedMemory&) = delete;

    [[nodiscard]] const std::uint8_t* bytes() const {
        return bytes_;
    } ///< null when short of memory
    [[nodiscard]] int file() const { return file_.get(); }
    [[nodiscard]] std::size_t size() const { return size_; }

  private:
    FileDescriptor file_;
    std::size_t size_;
    const std::uint8_t* bytes_ = nullptr;
};

/// What the compositor says of a monitor and of the copy that it makes.
struct Copy {
    std::uint32_t transform = 0; // how the monitor is turned
    std::uint32_t format = 0;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t stride = 0;
    bool isDescribed = false;
    bool isUpsideDown = false;
    bool isReady = false;
    bool hasFailed = false;

    static Copy& of(void* data) { return *static_cast<Copy*>(data); }
    [[nodiscard]] std::uint64_t size() const { return std::uint64_t{stride} * height; }
};

constexpr wl_output_listener outputListener = {
    .geometry =
        [](void* data, wl_output*, std::int32_t, std::int32_t, std::int32_t, std::int32_t,
           std::int32_t, const char*, const char*, std::int32_t transform) {
            Copy::of(data).transform = static_cast<std::uint32_t>(transform);
        },
    .mode = [](void*, wl_output*, std::uint32_t, std::int32_t, std::int32_t, std::int32_t) {},
    .done = [](void*, wl_output*) {},
    .scale = [](void*, wl_output*, std::int32_t) {},
    .name = [](void*, wl_output*, const char*) {},
    .description = [](void*, wl_output*, const char*) {}};

void described(void* data, zwlr_screencopy_frame_v1* frame, std::uint32_t format,
               std::uint32_t width, std::uint32_t height, std::uint32_t stride) {
    auto& copy = Copy::of(data);
    copy.format = format;
    copy.width = width;
    copy.height = height;
    copy.stride = stride;
    copy.isDescribed =
        copy.isDescribed || zwlr_screencopy_frame_v1_get_version(frame) < versionWithBufferDone;
}

constexpr zwlr_screencopy_frame_v1_listener frameListener = {
    .buffer = described,
    .flags =
        [](void* data, zwlr_screencopy_frame_v1*, std::uint32_t flags) {
            Copy::of(data).isUpsideDown = (flags & ZWLR_SCREENCOPY_FRAME_V1_FLAGS_Y_INVERT) != 0;
        },
    .ready = [](void* data, zwlr_screencopy_frame_v1*, std::uint32_t, std::uint32_t,
                std::uint32_t) { Copy::of(data).isReady = true; },
    .failed = [](void* data, zwlr_screencopy_frame_v1*) { Copy::of(data).hasFailed = true; },
    .damage = [](void*, zwlr_screencopy_frame_v1*, std::uint32_t, std::uint32_t, std::uint32_t,
                 std::uint32_t) {},
    .linux_dmabuf = [](void*, zwlr_screencopy_frame_v1*, std::uint32_t, std::uint32_t,
                       std::uint32_t) {},
    .buffer_done = [](void* data,
                      zwlr_screencopy_frame_v1*) { Copy::of(data).isDescribed = true; }};

/// Handles events until the flag is set; false when that takes too long or the copy failed.
bool await(Connection& connection, const Copy& copy, const bool& flag, Clock::time_point deadline) {
    while (!flag && !copy.hasFailed) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        if (left <= 0ms || !connection.dispatch(left))
            return false;
    }
    return flag;
}

std::optional<FrameLayout> layoutOf(const Copy& copy) {
    const bool isBlueFirst =
        copy.format == WL_SHM_FORMAT_XRGB8888 || copy.format == WL_SHM_FORMAT_ARGB8888;
    const bool isRedFirst =
        copy.format == WL_SHM_FORMAT_XBGR8888 || copy.format == WL_SHM_FORMAT_ABGR8888;
    if ((!isBlueFirst && !isRedFirst) || copy.size() == 0 || copy.size() > maxBytes)
        return std::nullopt;
    return FrameLayout{static_cast<int>(copy.width), static_cast<int>(copy.height), isRedFirst};
}

/// The rows in the other order.
Image flipped(const Image& image) {
    constexpr std::uint32_t halfTurnAfterFlip = 6; // of wl_output.transform
    return upright(image, halfTurnAfterFlip);
}

Outcome<Image> copyOutput(Connection& connection, const Global& monitor) {
    Copy copy;
    const Output output(connection.bind<wl_output>(monitor, wl_output_interface, shownVersion));
    const Memory memory(connection.bind<wl_shm>(wl_shm_interface, shownVersion));
    const Copier copier(connection.bind<zwlr_screencopy_manager_v1>(
        zwlr_screencopy_manager_v1_interface, copyVersion));
    if (!output || !memory || !copier)
        return Failure{"the compositor doesn't let its screen be copied"};
    wl_output_add_listener(output.get(), &outputListener, &copy);
    const Frame frame(
        zwlr_screencopy_manager_v1_capture_output(copier.get(), withoutCursor, output.get()));
    zwlr_screencopy_frame_v1_add_listener(frame.get(), &frameListener, &copy);
    const auto deadline = Clock::now() + patience;
    if (!await(connection, copy, copy.isDescribed, deadline))
        return Failure{"the compositor gave no picture"};
    const auto stride = copy.stride; // whatever it says while it copies
    const auto layout = layoutOf(copy);
    if (!layout)
        return Failure{"the compositor's pixels are of an unknown kind"};
    const SharedMemory shared(copy.size());
    if (shared.bytes() == nullptr)
        return Failure{"there is no memory for a picture"};
    const Pool pool(
        wl_shm_create_pool(memory.get(), shared.file(), static_cast<std::int32_t>(shared.size())));
    const Buffer buffer(wl_shm_pool_create_buffer(pool.get(), 0, layout->width, layout->height,
                                                  static_cast<std::int32_t>(stride), copy.format));
    zwlr_screencopy_frame_v1_copy(frame.get(), buffer.get());
    if (!await(connection, copy, copy.isReady, deadline))
        return Failure{"the compositor gave no picture"};
    const auto image = imageIn(shared.bytes(), shared.size(), 0, stride, *layout);
    if (!image)
        return Failure{"the compositor's picture has no valid size"};
    return upright(copy.isUpsideDown ? flipped(*image) : *image, copy.transform);
}

} // namespace

Screencopy::Screencopy() {
    const std::lock_guard lock(mutex_);
    (void)connect();
}

Screencopy::~Screencopy() = default;

bool Screencopy::connect() {
    if (!connection_ || !connection_->isAlive())
        connection_ = Connection::open();
    isOffered_ =
        connection_ && connection_->global(zwlr_screencopy_manager_v1_interface.name).has_value();
    return isOffered_;
}

Outcome<Image> Screencopy::picture() {
    return copy(std::numeric_limits<std::size_t>::max());
}

Outcome<Image> Screencopy::onlyMonitorsPicture() {
    return copy(1);
}

Outcome<Image> Screencopy::copy(std::size_t mostMonitors) {
    const std::lock_guard lock(mutex_);
    if (!connect() || !connection_->roundtrip(patience)) {
        connection_.reset();
        return Failure{"the compositor can't be reached"};
    }
    const auto monitors = connection_->globals(wl_output_interface.name);
    if (monitors.empty() || monitors.size() > mostMonitors)
        return Image{};
    auto image = copyOutput(*connection_, monitors.front());
    // What is still under way for a picture that took too long goes with its connection.
    if (!image)
        connection_.reset();
    return image;
}

} // namespace mnemora::wayland
