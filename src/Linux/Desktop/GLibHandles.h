#pragma once
// Owners for what GLib and GIO hand out. Only adapters' .cpp files include this.

#include <gio/gio.h>
#include <memory>
#include <string>

namespace mnemora::desktop {

struct GDeleter {
    void operator()(gchar* text) const { g_free(text); }
    void operator()(GVariant* value) const { g_variant_unref(value); }
    void operator()(GError* error) const { g_error_free(error); }
    void operator()(GMainContext* context) const { g_main_context_unref(context); }
    void operator()(GMainLoop* loop) const { g_main_loop_unref(loop); }
    void operator()(GSource* source) const { g_source_unref(source); }
};

/// A reference to a GObject.
template <class T>
struct GObjectDeleter {
    void operator()(T* object) const { g_object_unref(object); }
};
template <class T>
using GRef = std::unique_ptr<T, GObjectDeleter<T>>;
/// A text made by GLib.
using GText = std::unique_ptr<gchar, GDeleter>;
/// A value of the message bus.
using GValueRef = std::unique_ptr<GVariant, GDeleter>;
/// An error, taken by the address of a plain pointer and put in here.
using GErrorRef = std::unique_ptr<GError, GDeleter>;

} // namespace mnemora::desktop
