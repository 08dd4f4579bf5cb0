#include "Wayland/FakeCompositor.h"

#include <chrono>
#include <cstdlib>
#include <ext-idle-notify-v1-server.h>
#include <unistd.h>
#include <wayland-server.h>
#include <wlr-foreign-toplevel-management-unstable-v1-server.h>
#include <wlr-output-power-management-unstable-v1-server.h>
#include <wlr-screencopy-unstable-v1-server.h>

namespace mnemora::wayland {

struct FakeCompositor::Bindings {
    static void destroy(wl_client*, wl_resource* resource) { wl_resource_destroy(resource); }
    static wl_resource* add(wl_client* client, const wl_interface& interface, std::uint32_t version,
                            std::uint32_t id, const void* methods, void* data) {
        auto* made = wl_resource_create(client, &interface, static_cast<int>(version), id);
        wl_resource_set_implementation(made, methods, data, nullptr);
        return made;
    }
    static void* dataOf(wl_resource* resource) { return wl_resource_get_user_data(resource); }

    static void toplevels(wl_client* client, void* data, std::uint32_t version, std::uint32_t id) {
        static_cast<FakeCompositor*>(data)->manager_ =
            add(client, zwlr_foreign_toplevel_manager_v1_interface, version, id, &manager, data);
    }
    static void seat(wl_client* client, void* data, std::uint32_t version, std::uint32_t id) {
        add(client, wl_seat_interface, version, id, nullptr, data);
    }
    static void output(wl_client* client, void* data, std::uint32_t version, std::uint32_t id) {
        add(client, wl_output_interface, version, id, nullptr, data);
    }
    static void idle(wl_client* client, void* data, std::uint32_t version, std::uint32_t id) {
        add(client, ext_idle_notifier_v1_interface, version, id, &notifier, data);
    }
    static void powers(wl_client* client, void* data, std::uint32_t version, std::uint32_t id) {
        add(client, zwlr_output_power_manager_v1_interface, version, id, &powerManager, data);
    }
    static void notify(wl_client* client, wl_resource* self, std::uint32_t id, std::uint32_t,
                       wl_resource*) {
        static_cast<FakeCompositor*>(dataOf(self))->notification_ =
            add(client, ext_idle_notification_v1_interface, 1, id, &notification, nullptr);
    }
    static void power(wl_client* client, wl_resource* self, std::uint32_t id, wl_resource*) {
        static_cast<FakeCompositor*>(dataOf(self))->power_ =
            add(client, zwlr_output_power_v1_interface, 1, id, &outputPower, nullptr);
    }
    static void setMode(wl_client*, wl_resource*, std::uint32_t) {}

    static FakeCompositor* of(wl_resource* resource) {
        return static_cast<FakeCompositor*>(dataOf(resource));
    }

    // The library's own shared memory keeps the file to itself.
    static void memory(wl_client* client, void* data, std::uint32_t version, std::uint32_t id) {
        add(client, wl_shm_interface, version, id, &sharedMemory, data);
    }
    static void pool(wl_client* client, wl_resource* self, std::uint32_t id, std::int32_t file,
                     std::int32_t) {
        of(self)->memory_.reset(file);
        add(client, wl_shm_pool_interface, 1, id, &sharedPool, nullptr);
    }
    static void buffer(wl_client* client, wl_resource*, std::uint32_t id, std::int32_t,
                       std::int32_t, std::int32_t, std::int32_t, std::uint32_t) {
        add(client, wl_buffer_interface, 1, id, &sharedBuffer, nullptr);
    }
    static void resize(wl_client*, wl_resource*, std::int32_t) {}
    static void copier(wl_client* client, void* data, std::uint32_t version, std::uint32_t id) {
        add(client, zwlr_screencopy_manager_v1_interface, version, id, &copyManager, data);
    }
    static void capture(wl_client* client, wl_resource* self, std::uint32_t id, std::int32_t,
                        wl_resource*) {
        const Copy& copy = of(self)->copy_;
        auto* made = add(client, zwlr_screencopy_frame_v1_interface, 1, id, &frame, of(self));
        if (copy.fails)
            zwlr_screencopy_frame_v1_send_failed(made);
        else if (copy.tells)
            zwlr_screencopy_frame_v1_send_buffer(made, copy.format, copy.width, copy.height,
                                                 copy.stride);
    }
    static void copy(wl_client*, wl_resource* self, wl_resource*) { of(self)->copyTo(self); }

    static constexpr struct wl_shm_interface sharedMemory = {pool};
    static constexpr struct wl_shm_pool_interface sharedPool = {buffer, destroy, resize};
    static constexpr struct wl_buffer_interface sharedBuffer = {destroy};
    static constexpr struct zwlr_screencopy_manager_v1_interface copyManager = {capture, nullptr,
                                                                                destroy};
    static constexpr struct zwlr_screencopy_frame_v1_interface frame = {copy, destroy, nullptr};
    static constexpr struct zwlr_foreign_toplevel_manager_v1_interface manager = {destroy};
    static constexpr struct ext_idle_notifier_v1_interface notifier = {destroy, notify};
    static constexpr struct ext_idle_notification_v1_interface notification = {destroy};
    static constexpr struct zwlr_output_power_manager_v1_interface powerManager = {power, destroy};
    static constexpr struct zwlr_output_power_v1_interface outputPower = {setMode, destroy};
    static inline const struct zwlr_foreign_toplevel_handle_v1_interface window = [] {
        struct zwlr_foreign_toplevel_handle_v1_interface methods = {};
        methods.destroy = destroy;
        return methods;
    }();
};

FakeCompositor::FakeCompositor(Offer offer) {
    display_ = wl_display_create();
    loop_ = wl_display_get_event_loop(display_);
    name_.set(wl_display_add_socket_auto(display_));
    const auto offered = [&](const wl_interface& interface, int version,
                             wl_global_bind_func_t bind) {
        wl_global_create(display_, &interface, version, this, bind);
    };
    offered(wl_seat_interface, 1, Bindings::seat);
    offered(wl_output_interface, 1, Bindings::output);
    if (offer.toplevels)
        offered(zwlr_foreign_toplevel_manager_v1_interface, 3, Bindings::toplevels);
    if (offer.idle)
        offered(ext_idle_notifier_v1_interface, 1, Bindings::idle);
    if (offer.power)
        offered(zwlr_output_power_manager_v1_interface, 1, Bindings::powers);
    if (offer.screencopy) {
        offered(wl_shm_interface, 1, Bindings::memory);
        offered(zwlr_screencopy_manager_v1_interface, 1, Bindings::copier);
    }
    thread_ = std::thread([this] { run(); });
}

FakeCompositor::~FakeCompositor() {
    invoke([this] { isOver_ = true; });
    thread_.join();
    wl_display_destroy_clients(display_);
    wl_display_destroy(display_);
}

void FakeCompositor::run() {
    for (;;) {
        {
            const std::lock_guard lock(mutex_);
            if (isOver_)
                return;
            wl_event_loop_dispatch(loop_, 0);
            wl_display_flush_clients(display_);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

void FakeCompositor::invoke(const std::function<void()>& job) {
    const std::lock_guard lock(mutex_);
    job();
    wl_display_flush_clients(display_);
}

void FakeCompositor::describe(const std::string& name, const std::string& title,
                              const std::string& application,
                              const std::vector<std::uint32_t>& states) {
    invoke([&] {
        auto*& window = windows_[name];
        if (window == nullptr) {
            window = wl_resource_create(wl_resource_get_client(manager_),
                                        &zwlr_foreign_toplevel_handle_v1_interface,
                                        wl_resource_get_version(manager_), 0);
            wl_resource_set_implementation(window, &Bindings::window, nullptr, nullptr);
            zwlr_foreign_toplevel_manager_v1_send_toplevel(manager_, window);
        }
        zwlr_foreign_toplevel_handle_v1_send_title(window, title.c_str());
        zwlr_foreign_toplevel_handle_v1_send_app_id(window, application.c_str());
        wl_array array;
        wl_array_init(&array);
        for (const std::uint32_t state : states)
            *static_cast<std::uint32_t*>(wl_array_add(&array, sizeof state)) = state;
        zwlr_foreign_toplevel_handle_v1_send_state(window, &array);
        wl_array_release(&array);
        zwlr_foreign_toplevel_handle_v1_send_done(window);
    });
}

void FakeCompositor::openUntold(int count) {
    invoke([&] {
        for (int i = 0; i < count; ++i) {
            auto* window = wl_resource_create(wl_resource_get_client(manager_),
                                              &zwlr_foreign_toplevel_handle_v1_interface,
                                              wl_resource_get_version(manager_), 0);
            wl_resource_set_implementation(window, &Bindings::window, nullptr, nullptr);
            zwlr_foreign_toplevel_manager_v1_send_toplevel(manager_, window);
        }
    });
}

void FakeCompositor::setCopy(const Copy& copy) {
    invoke([&] { copy_ = copy; });
}

void FakeCompositor::copyTo(wl_resource* frame) {
    const std::vector<std::uint8_t> white(std::size_t{copy_.stride} * copy_.height, 255);
    // Who takes it away may be kept from it.
    [[maybe_unused]] const auto done = copy_.takesMemoryAway
                                           ? ftruncate(memory_.get(), 0)
                                           : pwrite(memory_.get(), white.data(), white.size(), 0);
    if (copy_.strideLater != 0)
        zwlr_screencopy_frame_v1_send_buffer(frame, copy_.format, copy_.width, copy_.height,
                                             copy_.strideLater);
    zwlr_screencopy_frame_v1_send_ready(frame, 0, 0, 0);
}

void FakeCompositor::close(const std::string& name) {
    invoke([&] {
        zwlr_foreign_toplevel_handle_v1_send_closed(windows_[name]);
        windows_.erase(name);
    });
}

void FakeCompositor::setIdle(bool isIdle) {
    invoke([&] {
        isIdle ? ext_idle_notification_v1_send_idled(notification_)
               : ext_idle_notification_v1_send_resumed(notification_);
    });
}

void FakeCompositor::setPower(bool isOn) {
    invoke([&] { zwlr_output_power_v1_send_mode(power_, isOn ? 1 : 0); });
}

} // namespace mnemora::wayland
