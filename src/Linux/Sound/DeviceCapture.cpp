#include "Linux/Sound/DeviceCapture.h"

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <string_view>
#include <utility>

namespace mnemora::pulse {
namespace {

bool hasAnyOf(std::string_view text, std::initializer_list<std::string_view> words) {
    return std::ranges::any_of(
        words, [&](auto word) { return text.find(word) != std::string_view::npos; });
}

/// Whether nobody but the user hears the sink: by the port that is in use or, for wireless
/// devices, by the form that the device says it has (PA_PROP_DEVICE_FORM_FACTOR).
bool playsIntoEars(const pa_sink_info& sink) {
    if (const auto* port = sink.active_port; port != nullptr) {
        if (port->type == PA_DEVICE_PORT_TYPE_HEADPHONES ||
            port->type == PA_DEVICE_PORT_TYPE_HEADSET)
            return true;
        // Drivers that tell no type use the mixer's own names.
        if (port->type == PA_DEVICE_PORT_TYPE_UNKNOWN && port->name != nullptr &&
            hasAnyOf(port->name, {"headphone", "headset"}))
            return true;
    }
    const char* form = pa_proplist_gets(sink.proplist, PA_PROP_DEVICE_FORM_FACTOR);
    return form != nullptr && hasAnyOf(form, {"headphone", "headset", "handset"});
}

} // namespace

DeviceCapture::DeviceCapture(CaptureRequest request) : request_(std::move(request)) {
    connection_ = ServerConnection::open(
        {.facts = [this](auto& server, const auto& facts) { followDefaults(server, facts); },
         .lost = [this](const std::string& reason) { unavailable(reason); },
         .renewed = [this] { close(); }});
    if (!connection_)
        settle("no thread for sound");
}

DeviceCapture::~DeviceCapture() {
    if (connection_)
        connection_->stop();
    stream_.reset(); // before its context, whose end it would hear of
}

std::optional<std::string> DeviceCapture::firstOutcome(std::chrono::milliseconds patience) {
    std::unique_lock lock(mutex_);
    settled_.wait_for(lock, patience, [this] { return outcome_.has_value(); });
    return outcome_;
}

void DeviceCapture::whenFirstFails(std::function<void(const std::string&)> failed) {
    const std::lock_guard lock(mutex_);
    if (!outcome_)
        failed_ = std::move(failed);
}

void DeviceCapture::followDefaults(ServerConnection& server, const pa_server_info& facts) {
    server_ = &server;
    const bool microphone = request_.device == CaptureRequest::Device::microphone;
    const char* name = microphone ? facts.default_source_name : facts.default_sink_name;
    if (name == nullptr || *name == '\0')
        return unavailable(microphone ? "no microphone" : "no output device");
    // Asked by name: the server's own name for "the default monitor" stands for the default
    // source on some, which is the microphone.
    if (microphone) {
        const auto found = [](pa_context*, const pa_source_info* source, int end, void* self) {
            if (source != nullptr)
                static_cast<DeviceCapture*>(self)->sourceFound(*source);
            else if (end < 0)
                static_cast<DeviceCapture*>(self)->unavailable("no microphone");
        };
        forget(pa_context_get_source_info_by_name(server.context(), name, found, this));
    } else {
        const auto found = [](pa_context*, const pa_sink_info* sink, int end, void* self) {
            if (sink != nullptr)
                static_cast<DeviceCapture*>(self)->sinkFound(*sink);
            else if (end < 0)
                static_cast<DeviceCapture*>(self)->unavailable("no output device");
        };
        forget(pa_context_get_sink_info_by_name(server.context(), name, found, this));
    }
}

void DeviceCapture::sourceFound(const pa_source_info& source) {
    // Without a real source the default one is an output's monitor: that would be the others.
    if (source.monitor_of_sink != PA_INVALID_INDEX)
        return unavailable("no microphone");
    buffer_.origin = SoundOrigin::microphone;
    open(source.name, source.sample_spec, source.channel_map);
}

void DeviceCapture::sinkFound(const pa_sink_info& sink) {
    if (sink.monitor_source_name == nullptr)
        return unavailable("no output device");
    buffer_.origin = playsIntoEars(sink) ? SoundOrigin::unknown : SoundOrigin::loudspeakers;
    open(sink.monitor_source_name, sink.sample_spec, sink.channel_map);
}

void DeviceCapture::open(const std::string& device, const pa_sample_spec& spec,
                         const pa_channel_map& map) {
    if (stream_ && device == device_ && PA_STREAM_IS_GOOD(pa_stream_get_state(stream_.get())))
        return;
    close();
    device_ = device;
    spec_ = {.format = PA_SAMPLE_FLOAT32NE,
             .rate = request_.sampleRate > 0 ? request_.sampleRate : spec.rate,
             .channels = request_.channels > 0 ? request_.channels : spec.channels};
    // The device's own channels: the library has default ones for few counts only, and an audio
    // interface's numbered inputs would be mixed into them.
    const auto* channels = spec_.channels == map.channels ? &map : nullptr;
    stream_.reset(pa_stream_new(server_->context(), request_.streamName.c_str(), &spec_, channels));
    if (!stream_)
        return unavailable(server_->reason());
    pa_stream_set_state_callback(
        stream_.get(),
        [](pa_stream*, void* self) { static_cast<DeviceCapture*>(self)->streamChanged(); }, this);
    pa_stream_set_read_callback(
        stream_.get(),
        [](pa_stream*, size_t, void* self) { static_cast<DeviceCapture*>(self)->read(); }, this);
    constexpr auto any = static_cast<uint32_t>(-1);
    const auto fragment = static_cast<uint32_t>(request_.frames * static_cast<int>(sizeof(float)) *
                                                static_cast<int>(spec_.channels));
    const pa_buffer_attr attributes{
        .maxlength = any, .tlength = any, .prebuf = any, .minreq = any, .fragsize = fragment};
    // Never moved: a server that moves the stream of an unplugged microphone to what is left would
    // have the others speak as the user.
    const auto flags = PA_STREAM_ADJUST_LATENCY | PA_STREAM_DONT_MOVE;
    if (pa_stream_connect_record(stream_.get(), device_.c_str(), &attributes,
                                 static_cast<pa_stream_flags_t>(flags)) < 0) {
        unavailable(server_->reason());
        server_->refreshLater();
    }
}

void DeviceCapture::close() {
    stream_.reset();
    device_.clear();
}

void DeviceCapture::streamChanged() {
    const auto state = pa_stream_get_state(stream_.get());
    if (state == PA_STREAM_READY)
        return settle("");
    if (PA_STREAM_IS_GOOD(state))
        return;
    // The stream stays until it is replaced: its own callback is no place to let it go.
    settle(server_->reason());
    server_->refreshLater();
}

void DeviceCapture::read() {
    while (pa_stream_readable_size(stream_.get()) > 0) {
        const void* data = nullptr;
        size_t bytes = 0;
        if (pa_stream_peek(stream_.get(), &data, &bytes) < 0 || bytes == 0)
            return;
        deliver(static_cast<const float*>(data), bytes);
        pa_stream_drop(stream_.get());
    }
}

void DeviceCapture::deliver(const float* samples, size_t bytes) {
    if (!request_.sink)
        return;
    buffer_.sampleRate = spec_.rate;
    buffer_.channels = spec_.channels;
    buffer_.samples.resize(bytes / sizeof(float));
    // A hole in the recording comes without samples; as silence it keeps its length.
    if (samples != nullptr)
        std::memcpy(buffer_.samples.data(), samples, buffer_.samples.size() * sizeof(float));
    else
        std::ranges::fill(buffer_.samples, 0.0F);
    request_.sink(buffer_);
}

void DeviceCapture::settle(const std::string& outcome) {
    std::function<void(const std::string&)> failed;
    {
        const std::lock_guard lock(mutex_);
        if (outcome_)
            return;
        outcome_ = outcome;
        failed = std::exchange(failed_, nullptr);
    }
    settled_.notify_all();
    if (failed && !outcome.empty())
        failed(outcome);
}

void DeviceCapture::unavailable(const std::string& reason) {
    close();
    settle(reason);
}

} // namespace mnemora::pulse
