#include "Linux/Screen/PortalRequest.h"

#include <algorithm>
#include <atomic>
#include <utility>

namespace mnemora::portal {
namespace {

using Done = std::function<void(Answer, GVariant*)>;

constexpr int callPatienceMs = 10'000; // to withdraw; nobody waits for it

/// Where the portal will answer: the path is made of our name on the bus and the handle.
std::string requestPath(GDBusConnection* bus, const std::string& handle) {
    std::string name = g_dbus_connection_get_unique_name(bus) + 1; // without its colon
    std::replace(name.begin(), name.end(), '.', '_');
    return std::string(objectPath) + "/request/" + name + "/" + handle;
}

class Request : public std::enable_shared_from_this<Request> {
  public:
    Request(GDBusConnection* bus, Done done)
        : bus_(G_DBUS_CONNECTION(g_object_ref(bus))), handle_(newHandle()),
          path_(requestPath(bus, handle_)), done_(std::move(done)) {}
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;
    ~Request() {
        if (isOpen())
            withdraw();
        forget();
    }

    void put(const Question& question, GVariantBuilder& options) {
        listen();
        limit(question.patience);
        g_variant_builder_add(&options, "{sv}", "handle_token",
                              g_variant_new_string(handle_.c_str()));
        const auto weak = weak_from_this();
        desktop::callBus(bus_.get(), {service, objectPath, castInterface, question.member},
                         arguments(question, options), "(o)",
                         static_cast<int>(question.patience.count()),
                         [weak](GVariant* reply, bool timedOut) {
                             const auto self = weak.lock();
                             if (self && reply == nullptr)
                                 self->finish(timedOut ? Answer::late : Answer::failed, nullptr);
                         });
    }

  private:
    static GVariant* arguments(const Question& question, GVariantBuilder& options) {
        if (question.session.empty())
            return g_variant_new("(a{sv})", &options);
        if (question.namesWindow)
            return g_variant_new("(osa{sv})", question.session.c_str(), "", &options);
        return g_variant_new("(oa{sv})", question.session.c_str(), &options);
    }

    void listen() {
        const auto weak = weak_from_this();
        signal_ = desktop::listenToBus(
            bus_.get(), {service, "org.freedesktop.portal.Request", "Response", path_, {}},
            [weak](const std::string&, const std::string&, GVariant* reply) {
                if (const auto self = weak.lock())
                    self->answered(reply);
            });
    }

    void limit(std::chrono::milliseconds patience) {
        timer_.reset(g_timeout_source_new(static_cast<guint>(patience.count())));
        g_source_set_callback(timer_.get(), ranOut, this, nullptr);
        g_source_attach(timer_.get(), g_main_context_get_thread_default());
    }

    static gboolean ranOut(gpointer request) {
        auto* self = static_cast<Request*>(request);
        const auto alive = self->shared_from_this();
        self->withdraw();
        self->finish(Answer::late, nullptr);
        return G_SOURCE_REMOVE;
    }

    void answered(GVariant* reply) {
        if (!g_variant_is_of_type(reply, G_VARIANT_TYPE("(ua{sv})")))
            return finish(Answer::failed, nullptr);
        guint32 code = 0;
        GVariant* plain = nullptr;
        g_variant_get(reply, "(u@a{sv})", &code, &plain);
        const desktop::GValueRef results(plain);
        finish(code == 0   ? Answer::given
               : code == 1 ? Answer::refused
                           : Answer::failed,
               results.get());
    }

    void withdraw() {
        desktop::callBus(
            bus_.get(), {service, path_, "org.freedesktop.portal.Request", "Close"}, nullptr, "()",
            callPatienceMs, [](GVariant*, bool) {}, G_DBUS_CALL_FLAGS_NO_AUTO_START);
    }

    void finish(Answer answer, GVariant* results) {
        if (!isOpen())
            return;
        const auto alive = shared_from_this(); // `done` may let go of the handle
        const auto done = std::exchange(done_, nullptr);
        forget();
        done(answer, results);
    }

    [[nodiscard]] bool isOpen() const { return done_ != nullptr; }

    void forget() {
        if (signal_ != 0)
            g_dbus_connection_signal_unsubscribe(bus_.get(), std::exchange(signal_, 0));
        if (timer_)
            g_source_destroy(timer_.get());
        timer_.reset();
    }

    const desktop::GRef<GDBusConnection> bus_;
    const std::string handle_;
    const std::string path_;
    Done done_; // null once it has been called
    guint signal_ = 0;
    std::unique_ptr<GSource, desktop::GDeleter> timer_;
};

} // namespace

std::shared_ptr<void> ask(GDBusConnection* bus, const Question& question, GVariantBuilder& options,
                          Done done) {
    auto request = std::make_shared<Request>(bus, std::move(done));
    request->put(question, options);
    return request;
}

std::string newHandle() {
    static std::atomic<unsigned> count = 0;
    return "mnemora" + std::to_string(++count);
}

} // namespace mnemora::portal
