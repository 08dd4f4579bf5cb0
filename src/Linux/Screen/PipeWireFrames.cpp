#include "Linux/Screen/PipeWireFrames.h"

#include <array>
#include <ctime>
#include <mutex>
#include <pipewire/pipewire.h>
#include <spa/param/buffers.h>
#include <spa/param/video/format-utils.h>
#include <utility>

namespace mnemora::pipewire {
namespace {

using namespace std::chrono_literals;

constexpr std::uint32_t maxSide = 16384;
// A compositor that draws upon request answers with the next frame of the display, some 16 ms
// later; one that sends changes only sends nothing while there are none.
constexpr auto patienceForChange = 400ms;

void start() {
    static std::once_flag once;
    std::call_once(once, [] { pw_init(nullptr, nullptr); });
}

template <auto destroy>
struct Destroy {
    template <class T>
    void operator()(T* handle) const {
        destroy(handle);
    }
};

class Locked {
  public:
    explicit Locked(pw_thread_loop* loop) : loop_(loop) { pw_thread_loop_lock(loop_); }
    ~Locked() { pw_thread_loop_unlock(loop_); }
    Locked(const Locked&) = delete;
    Locked& operator=(const Locked&) = delete;

  private:
    pw_thread_loop* loop_;
};

/// The frames that we understand, at any size and speed. Lies in `memory`.
const spa_pod* offeredFormat(std::array<std::uint8_t, 1024>& memory) {
    const spa_rectangle usual{1920, 1080};
    const spa_rectangle smallest{1, 1};
    const spa_rectangle largest{maxSide, maxSide};
    const spa_fraction still{0, 1}; // frames come when something changes
    const spa_fraction fastest{1000, 1};
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, memory.data(), static_cast<std::uint32_t>(memory.size()));
    spa_pod_frame frame{};
    spa_pod_builder_push_object(&builder, &frame, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat);
    spa_pod_builder_add(
        &builder, SPA_FORMAT_mediaType, SPA_POD_Id(SPA_MEDIA_TYPE_video), SPA_FORMAT_mediaSubtype,
        SPA_POD_Id(SPA_MEDIA_SUBTYPE_raw), SPA_FORMAT_VIDEO_format,
        SPA_POD_CHOICE_ENUM_Id(5, SPA_VIDEO_FORMAT_BGRx, SPA_VIDEO_FORMAT_BGRx,
                               SPA_VIDEO_FORMAT_BGRA, SPA_VIDEO_FORMAT_RGBx, SPA_VIDEO_FORMAT_RGBA),
        SPA_FORMAT_VIDEO_size, SPA_POD_CHOICE_RANGE_Rectangle(&usual, &smallest, &largest),
        SPA_FORMAT_VIDEO_framerate, SPA_POD_CHOICE_RANGE_Fraction(&still, &still, &fastest), 0);
    return static_cast<const spa_pod*>(spa_pod_builder_pop(&builder, &frame));
}

/// Frames in ordinary memory, which every producer has, and none on the graphics card.
const spa_pod* offeredBuffers(std::array<std::uint8_t, 1024>& memory) {
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, memory.data(), static_cast<std::uint32_t>(memory.size()));
    spa_pod_frame frame{};
    spa_pod_builder_push_object(&builder, &frame, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers);
    constexpr int types = 1 << SPA_DATA_MemPtr | 1 << SPA_DATA_MemFd;
    spa_pod_builder_add(&builder, SPA_PARAM_BUFFERS_dataType, SPA_POD_CHOICE_FLAGS_Int(types), 0);
    return static_cast<const spa_pod*>(spa_pod_builder_pop(&builder, &frame));
}

} // namespace

/// In the order in which they are made; the loop's thread has to stand still before any goes.
struct PipeWireFrames::Handles {
    std::unique_ptr<pw_thread_loop, Destroy<pw_thread_loop_destroy>> loop;
    std::unique_ptr<pw_context, Destroy<pw_context_destroy>> context;
    std::unique_ptr<pw_core, Destroy<pw_core_disconnect>> core;
    std::unique_ptr<pw_stream, Destroy<pw_stream_destroy>> stream;
    spa_hook coreHook{};
    spa_hook streamHook{};
};

struct PipeWireFrames::Events {
    static void failed(void* data, std::uint32_t id, int, int, const char*) {
        if (id == PW_ID_CORE)
            static_cast<PipeWireFrames*>(data)->end();
    }
    static void stateChanged(void* data, pw_stream_state, pw_stream_state state, const char*) {
        auto* self = static_cast<PipeWireFrames*>(data);
        self->isStreaming_ = state == PW_STREAM_STATE_STREAMING;
        if (state == PW_STREAM_STATE_ERROR || state == PW_STREAM_STATE_UNCONNECTED)
            self->end();
    }
    static void parameterChanged(void* data, std::uint32_t id, const spa_pod* parameter) {
        if (id == SPA_PARAM_Format && parameter != nullptr)
            static_cast<PipeWireFrames*>(data)->chooseFormat(parameter);
    }
    static void process(void* data) { static_cast<PipeWireFrames*>(data)->takeFrames(); }

    static pw_core_events core() {
        pw_core_events events{};
        events.version = PW_VERSION_CORE_EVENTS;
        events.error = failed;
        return events;
    }
    static pw_stream_events stream() {
        pw_stream_events events{};
        events.version = PW_VERSION_STREAM_EVENTS;
        events.state_changed = stateChanged;
        events.param_changed = parameterChanged;
        events.process = process;
        return events;
    }
};

std::shared_ptr<FrameStream> PipeWireFrames::open(FileDescriptor remote, std::uint32_t node,
                                                  std::string& reason) {
    start();
    const std::shared_ptr<PipeWireFrames> frames(new PipeWireFrames);
    return frames->connect(std::move(remote), node, reason) ? frames : nullptr;
}

PipeWireFrames::PipeWireFrames() : handles_(std::make_unique<Handles>()) {}

PipeWireFrames::~PipeWireFrames() {
    if (handles_->loop)
        pw_thread_loop_stop(handles_->loop.get());
    handles_->stream.reset();
    handles_->core.reset();
    handles_->context.reset();
}

bool PipeWireFrames::connect(FileDescriptor remote, std::uint32_t node, std::string& reason) {
    handles_->loop.reset(pw_thread_loop_new("screen-cast", nullptr));
    if (!handles_->loop) {
        reason = "PipeWire gives no thread";
        return false;
    }
    auto* loop = handles_->loop.get();
    handles_->context.reset(pw_context_new(pw_thread_loop_get_loop(loop), nullptr, 0));
    if (!handles_->context || pw_thread_loop_start(loop) != 0) {
        reason = "PipeWire's client configuration is missing";
        return false;
    }
    const Locked lock(loop);
    // The library closes the descriptor, also when it fails.
    handles_->core.reset(
        pw_context_connect_fd(handles_->context.get(), remote.release(), nullptr, 0));
    if (!handles_->core || !startStream(node)) {
        reason = "PipeWire can't be reached";
        return false;
    }
    return true;
}

bool PipeWireFrames::startStream(std::uint32_t node) {
    static const pw_core_events coreEvents = Events::core();
    static const pw_stream_events streamEvents = Events::stream();
    pw_core_add_listener(handles_->core.get(), &handles_->coreHook, &coreEvents, this);
    handles_->stream.reset(
        pw_stream_new(handles_->core.get(), "Mnemora",
                      pw_properties_new(PW_KEY_MEDIA_TYPE, "Video", PW_KEY_MEDIA_CATEGORY,
                                        "Capture", PW_KEY_MEDIA_ROLE, "Screen", nullptr)));
    if (!handles_->stream)
        return false;
    pw_stream_add_listener(handles_->stream.get(), &handles_->streamHook, &streamEvents, this);
    std::array<std::uint8_t, 1024> memory{};
    const spa_pod* format = offeredFormat(memory);
    constexpr auto flags =
        static_cast<pw_stream_flags>(PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_INACTIVE |
                                     PW_STREAM_FLAG_MAP_BUFFERS | PW_STREAM_FLAG_DONT_RECONNECT);
    return pw_stream_connect(handles_->stream.get(), PW_DIRECTION_INPUT, node, flags, &format, 1) ==
           0;
}

Outcome<Image> PipeWireFrames::picture(std::chrono::milliseconds patience) {
    const Locked lock(handles_->loop.get());
    if (ended_)
        return Failure{"the screen cast has ended"};
    takeFrames(); // what was under way when the last picture was complete
    isNew_ = false;
    isWanted_ = true;
    pw_stream_set_active(handles_->stream.get(), true);
    const bool hasCome = waitForPicture(patience);
    isWanted_ = false;
    pw_stream_set_active(handles_->stream.get(), false);
    if (ended_)
        return Failure{"the screen cast has ended"};
    if (!hasCome)
        return Failure{"the compositor sent no picture"};
    return *picture_;
}

bool PipeWireFrames::waitForPicture(std::chrono::milliseconds patience) {
    using Clock = std::chrono::steady_clock;
    const auto begin = Clock::now();
    while (!isNew_ && !ended_) {
        const auto passed = Clock::now() - begin;
        if (passed >= patience)
            return false;
        // Running without a frame means that nothing has changed since the last one.
        if (picture_ && isStreaming_ && passed >= patienceForChange)
            return true;
        constexpr auto step = std::chrono::nanoseconds(50ms);
        timespec until{};
        pw_thread_loop_get_time(handles_->loop.get(), &until, step.count());
        (void)pw_thread_loop_timed_wait_full(handles_->loop.get(), &until);
    }
    return isNew_;
}

void PipeWireFrames::chooseFormat(const spa_pod* format) {
    spa_video_info_raw info{};
    layout_ = {};
    if (spa_format_video_raw_parse(format, &info) < 0 || info.size.width > maxSide ||
        info.size.height > maxSide)
        return;
    layout_ = {.width = static_cast<int>(info.size.width),
               .height = static_cast<int>(info.size.height),
               .isRedFirst =
                   info.format == SPA_VIDEO_FORMAT_RGBx || info.format == SPA_VIDEO_FORMAT_RGBA};
    picture_.reset(); // of another size
    std::array<std::uint8_t, 1024> memory{};
    const spa_pod* buffers = offeredBuffers(memory);
    pw_stream_update_params(handles_->stream.get(), &buffers, 1);
}

void PipeWireFrames::takeFrames() {
    auto* stream = handles_->stream.get();
    while (pw_buffer* buffer = pw_stream_dequeue_buffer(stream)) {
        if (isWanted_)
            take(*buffer->buffer);
        pw_stream_queue_buffer(stream, buffer);
    }
    if (isNew_)
        pw_thread_loop_signal(handles_->loop.get(), false);
}

void PipeWireFrames::take(const spa_buffer& buffer) {
    if (buffer.n_datas == 0 || buffer.datas[0].chunk == nullptr)
        return;
    const spa_data& data = buffer.datas[0];
    const spa_chunk& chunk = *data.chunk;
    if ((chunk.flags & SPA_CHUNK_FLAG_CORRUPTED) != 0 || chunk.size == 0)
        return;
    auto image = imageIn(static_cast<const std::uint8_t*>(data.data), data.maxsize, chunk.offset,
                         chunk.stride, layout_);
    if (!image)
        return;
    picture_ = std::move(image);
    isNew_ = true;
}

void PipeWireFrames::end() {
    ended_ = true;
    picture_.reset();
    pw_thread_loop_signal(handles_->loop.get(), false);
}

} // namespace mnemora::pipewire
