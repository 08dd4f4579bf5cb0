#pragma once
// Owners of the sound client library's objects.

#include <memory>
#include <pulse/pulseaudio.h>

namespace mnemora::pulse {

struct MainloopFree {
    void operator()(pa_threaded_mainloop* loop) const { pa_threaded_mainloop_free(loop); }
};
/// Freeing it joins its thread.
using MainloopHandle = std::unique_ptr<pa_threaded_mainloop, MainloopFree>;

struct ContextClose {
    void operator()(pa_context* context) const {
        pa_context_set_state_callback(context, nullptr, nullptr);
        pa_context_set_subscribe_callback(context, nullptr, nullptr);
        pa_context_disconnect(context);
        pa_context_unref(context);
    }
};
/// Loop thread, or the loop locked or stopped.
using ContextHandle = std::unique_ptr<pa_context, ContextClose>;

struct StreamClose {
    void operator()(pa_stream* stream) const {
        pa_stream_set_read_callback(stream, nullptr, nullptr);
        // One that the server hasn't answered for has no number by which it could be ended: it
        // would go on there, listening to the microphone. So it is ended with the answer.
        if (pa_stream_get_state(stream) == PA_STREAM_CREATING)
            return pa_stream_set_state_callback(stream, endOnceMade, nullptr);
        pa_stream_set_state_callback(stream, nullptr, nullptr);
        pa_stream_disconnect(stream);
        pa_stream_unref(stream);
    }
    static void endOnceMade(pa_stream* stream, void* /*nobody*/) {
        const auto state = pa_stream_get_state(stream);
        if (state == PA_STREAM_READY)
            pa_stream_disconnect(stream);
        else if (!PA_STREAM_IS_GOOD(state))
            pa_stream_unref(stream); // also when its context ends
    }
};
/// As for contexts.
using StreamHandle = std::unique_ptr<pa_stream, StreamClose>;

struct PropertiesFree {
    void operator()(pa_proplist* list) const { pa_proplist_free(list); }
};
using PropertiesHandle = std::unique_ptr<pa_proplist, PropertiesFree>;

/// Gives up interest in an operation's end; its callback comes all the same.
inline void forget(pa_operation* operation) {
    if (operation != nullptr)
        pa_operation_unref(operation);
}

} // namespace mnemora::pulse
