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

constexpr std::uint32_t maxSide = maxFrameSide;
// A compositor that draws when a cast goes on does it with the next frame of the display.
constexpr auto patienceAfterRest = 400ms;
// As many pictures a second a change-driven cast may send; nobody needs more.
constexpr std::uint32_t maxRate = 4;
// What has changed has been sent after this time, a little more than the rate's.
constexpr auto patienceForChange = 350ms;

void start() {
    static std::once_flag once;
    std::call_once(once, [] { pw_init(nullptr, nullptr); });
}

void destroyRegistry(pw_registry* registry) {
    pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry));
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
    const spa_fraction slow{1, 1};
    const spa_fraction enough{maxRate, 1};
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
        SPA_FORMAT_VIDEO_framerate, SPA_POD_CHOICE_RANGE_Fraction(&still, &still, &fastest),
        SPA_FORMAT_VIDEO_maxFramerate, SPA_POD_CHOICE_RANGE_Fraction(&enough, &slow, &enough), 0);
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

/// Not all buffers hold one: some only move the pointer, or say that a frame was lost.
bool isFrame(const spa_buffer& buffer) {
    return buffer.n_datas > 0 && buffer.datas[0].chunk != nullptr &&
           (buffer.datas[0].chunk->flags & SPA_CHUNK_FLAG_CORRUPTED) == 0 &&
           buffer.datas[0].chunk->size > 0;
}

} // namespace

/// In the order in which they are made; the loop's thread has to stand still before any goes.
struct PipeWireFrames::Handles {
    std::unique_ptr<pw_thread_loop, Destroy<pw_thread_loop_destroy>> loop;
    std::unique_ptr<pw_context, Destroy<pw_context_destroy>> context;
    std::unique_ptr<pw_core, Destroy<pw_core_disconnect>> core;
    std::unique_ptr<pw_stream, Destroy<pw_stream_destroy>> stream;
    std::unique_ptr<pw_registry, Destroy<destroyRegistry>> registry;
    spa_hook coreHook{};
    spa_hook registryHook{};
    spa_hook streamHook{};
};

struct PipeWireFrames::Events {
    static void failed(void* data, std::uint32_t id, int, int, const char*) {
        if (id == PW_ID_CORE)
            static_cast<PipeWireFrames*>(data)->end();
    }
    static void globalRemoved(void* data, std::uint32_t id) {
        auto* self = static_cast<PipeWireFrames*>(data);
        if (id == self->node_)
            self->end();
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
    static void bufferRemoved(void* data, pw_buffer* buffer) {
        auto* self = static_cast<PipeWireFrames*>(data);
        if (self->held_ == buffer)
            self->held_ = nullptr;
    }
    static void process(void* data) { static_cast<PipeWireFrames*>(data)->takeFrames(); }

    static pw_core_events core() {
        pw_core_events events{};
        events.version = PW_VERSION_CORE_EVENTS;
        events.error = failed;
        return events;
    }
    static pw_registry_events registry() {
        pw_registry_events events{};
        events.version = PW_VERSION_REGISTRY_EVENTS;
        events.global_remove = globalRemoved;
        return events;
    }
    static pw_stream_events stream() {
        pw_stream_events events{};
        events.version = PW_VERSION_STREAM_EVENTS;
        events.state_changed = stateChanged;
        events.param_changed = parameterChanged;
        events.remove_buffer = bufferRemoved;
        events.process = process;
        return events;
    }
};

std::shared_ptr<FrameStream> PipeWireFrames::open(CastSource source, std::string& reason) {
    start();
    const std::shared_ptr<PipeWireFrames> frames(new PipeWireFrames);
    return frames->connect(std::move(source), reason) ? frames : nullptr;
}

PipeWireFrames::PipeWireFrames() : handles_(std::make_unique<Handles>()) {}

PipeWireFrames::~PipeWireFrames() {
    if (handles_->loop)
        pw_thread_loop_stop(handles_->loop.get());
    handles_->stream.reset();
    handles_->registry.reset();
    handles_->core.reset();
    handles_->context.reset();
}

bool PipeWireFrames::connect(CastSource source, std::string& reason) {
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
        pw_context_connect_fd(handles_->context.get(), source.remote.release(), nullptr, 0));
    if (handles_->core) {
        node_ = source.node;
        follows_ = source.sendsChangesOnly;
        watch();
        if (startStream())
            return true;
    }
    reason = "PipeWire can't be reached";
    return false;
}

/// A session manager links a stream whose source has gone to another one, a camera for instance,
/// and its flag against that keeps a source that has just come from being found at all (WirePlumber
/// 0.4). So the source's end is watched for.
void PipeWireFrames::watch() {
    static const pw_core_events coreEvents = Events::core();
    static const pw_registry_events registryEvents = Events::registry();
    auto* core = handles_->core.get();
    pw_core_add_listener(core, &handles_->coreHook, &coreEvents, this);
    handles_->registry.reset(pw_core_get_registry(core, PW_VERSION_REGISTRY, 0));
    pw_registry_add_listener(handles_->registry.get(), &handles_->registryHook, &registryEvents,
                             this);
}

bool PipeWireFrames::startStream() {
    static const pw_stream_events streamEvents = Events::stream();
    handles_->stream.reset(
        pw_stream_new(handles_->core.get(), "Mnemora",
                      pw_properties_new(PW_KEY_MEDIA_TYPE, "Video", PW_KEY_MEDIA_CATEGORY,
                                        "Capture", PW_KEY_MEDIA_ROLE, "Screen", nullptr)));
    if (!handles_->stream)
        return false;
    pw_stream_add_listener(handles_->stream.get(), &handles_->streamHook, &streamEvents, this);
    std::array<std::uint8_t, 1024> memory{};
    const spa_pod* format = offeredFormat(memory);
    constexpr auto flags = static_cast<pw_stream_flags>(
        PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_INACTIVE | PW_STREAM_FLAG_MAP_BUFFERS);
    return pw_stream_connect(handles_->stream.get(), PW_DIRECTION_INPUT, node_, flags, &format,
                             1) == 0;
}

Outcome<Image> PipeWireFrames::picture(std::chrono::milliseconds patience,
                                       std::chrono::steady_clock::time_point changedAt) {
    const Locked lock(handles_->loop.get());
    if (ended_)
        return Failure{"the screen cast has ended"};
    const bool goesOn = isWanted_;
    begin();
    (void)waitForFrame(goesOn ? patienceForChange : hasRested_ ? patienceAfterRest : patience);
    // One that sends nothing after a rest has forgotten what changed. From now on it gets none, and
    // what it sent last is what there is to see.
    follows_ = follows_ || (!isNew_ && isStreaming_);
    const auto isOld = [&] { return heldAt_ < changedAt; };
    if (held_ == nullptr || isOld())
        (void)waitForFrame(patience);
    const auto image = held_ != nullptr && isOld() ? Image{} : heldImage();
    if (!follows_)
        rest();
    if (ended_)
        return Failure{"the screen cast has ended"};
    if (!image)
        return Failure{"the compositor sent no picture"};
    return *image;
}

void PipeWireFrames::begin() {
    isNew_ = false;
    if (isWanted_)
        return;
    takeFrames(); // what was under way when the last picture was complete, and nobody wants
    isWanted_ = true;
    pw_stream_set_active(handles_->stream.get(), true);
}

void PipeWireFrames::rest() {
    isWanted_ = false;
    hasRested_ = true;
    hold(nullptr);
    pw_stream_set_active(handles_->stream.get(), false);
}

bool PipeWireFrames::waitForFrame(std::chrono::milliseconds patience) {
    timespec until{};
    pw_thread_loop_get_time(handles_->loop.get(), &until,
                            std::chrono::nanoseconds(patience).count());
    while (!isNew_ && !ended_)
        if (pw_thread_loop_timed_wait_full(handles_->loop.get(), &until) != 0)
            break;
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
    std::array<std::uint8_t, 1024> memory{};
    const spa_pod* buffers = offeredBuffers(memory);
    pw_stream_update_params(handles_->stream.get(), &buffers, 1);
}

void PipeWireFrames::takeFrames() {
    auto* stream = handles_->stream.get();
    while (pw_buffer* buffer = pw_stream_dequeue_buffer(stream)) {
        if (isWanted_ && isFrame(*buffer->buffer)) {
            hold(buffer);
            heldAt_ = std::chrono::steady_clock::now();
            isNew_ = true;
        } else {
            pw_stream_queue_buffer(stream, buffer);
        }
    }
    if (isNew_)
        pw_thread_loop_signal(handles_->loop.get(), false);
}

/// Keeps the newest frame where it is; copying each would cost more than all else.
void PipeWireFrames::hold(pw_buffer* buffer) {
    if (pw_buffer* former = std::exchange(held_, buffer))
        pw_stream_queue_buffer(handles_->stream.get(), former);
}

std::optional<Image> PipeWireFrames::heldImage() const {
    if (held_ == nullptr || !isStreaming_ || ended_)
        return std::nullopt;
    const spa_data& data = held_->buffer->datas[0];
    const std::size_t size = data.type == SPA_DATA_MemFd ? bytesInFile(static_cast<int>(data.fd),
                                                                       data.mapoffset, data.maxsize)
                                                         : data.maxsize;
    return imageIn(static_cast<const std::uint8_t*>(data.data), size, data.chunk->offset,
                   data.chunk->stride, layout_);
}

void PipeWireFrames::end() {
    ended_ = true;
    pw_thread_loop_signal(handles_->loop.get(), false);
}

} // namespace mnemora::pipewire
