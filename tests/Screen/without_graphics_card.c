// For the portal's wlroots backend on a machine without a graphics card. It insists on being told
// of buffers on the card, although it can do without and then does: this tells it of some.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <string.h>
#include <wlr-screencopy-unstable-v1.h>

static const struct zwlr_screencopy_frame_v1_listener* real;
static struct zwlr_screencopy_frame_v1_listener ours;

static void described(void* data, struct zwlr_screencopy_frame_v1* frame, uint32_t format,
                      uint32_t width, uint32_t height, uint32_t stride) {
    const uint32_t xrgb8888 = 0x34325258; // by drm_fourcc.h
    real->buffer(data, frame, format, width, height, stride);
    real->linux_dmabuf(data, frame, xrgb8888, width, height);
}

int wl_proxy_add_listener(struct wl_proxy* proxy, void (**implementation)(void), void* data) {
    int (*next)(struct wl_proxy*, void (**)(void), void*) =
        dlsym(RTLD_NEXT, "wl_proxy_add_listener");
    if (strcmp(wl_proxy_get_class(proxy), "zwlr_screencopy_frame_v1") != 0)
        return next(proxy, implementation, data);
    real = (const struct zwlr_screencopy_frame_v1_listener*)implementation;
    ours = *real;
    ours.buffer = described;
    return next(proxy, (void (**)(void)) & ours, data);
}
