#include "Linux/Wayland/KWinWindows.h"

#include "Linux/Desktop/GLibHandles.h"
#include "fakes/Eventually.h"
#include "fakes/TemporaryHome.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace mnemora::wayland {
namespace {

using namespace std::chrono_literals;
using desktop::GLibThread;
using desktop::GRef;
using desktop::GValueRef;

// As the script's JSON.stringify() writes two windows of Plasma.
constexpr const char* twoWindows =
    R"([{"id":"{2b1f}","title":"notes.txt — Kate","minimized":false,"application":"org.kde.kate",)"
    R"("process":4242,"active":true},{"id":"{77aa}","title":"Konsole","minimized":true,)"
    R"("application":"org.kde.konsole","process":4343,"active":false}])";

TEST(KWinWindows, AreReadFromTheScriptsMessageAndFromNothingElse) {
    const auto windows = parseKWinWindows(twoWindows);
    ASSERT_TRUE(windows);
    ASSERT_EQ(windows->size(), 2U);
    const ListedWindow& first = windows->front();
    EXPECT_EQ(first.title, "notes.txt — Kate");
    EXPECT_EQ(first.applicationId, "org.kde.kate");
    EXPECT_EQ(first.process, 4242);
    EXPECT_TRUE(first.isActive);
    EXPECT_NE(first.number, 0U);
    EXPECT_TRUE(windows->back().isMinimized);
    for (const char* odd :
         {"", "{}", "[1]", "[{\"title\":7}]", "[{\"process\":\"x\"}]", "[{", "null"})
        EXPECT_EQ(parseKWinWindows(odd), std::nullopt) << odd;
}

/// KWin's side of the bus: takes a script and says what its own would say.
class FakeKWin {
  public:
    FakeKWin() {
        thread_.invokeAndWait([this] {
            bus_.reset(g_dbus_connection_new_for_address_sync(
                std::getenv("DBUS_SESSION_BUS_ADDRESS"),
                static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                  G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
                nullptr, nullptr, nullptr));
            constexpr const char* xml =
                "<node><interface name='org.kde.kwin.Scripting'>"
                "<method name='loadScript'><arg type='s' direction='in'/><arg type='s' "
                "direction='in'/><arg type='i' direction='out'/></method>"
                "<method name='unloadScript'><arg type='s' direction='in'/><arg type='b' "
                "direction='out'/></method><method name='start'/></interface></node>";
            GDBusNodeInfo* node = g_dbus_node_info_new_for_xml(xml, nullptr);
            static constexpr GDBusInterfaceVTable methods = {called, nullptr, nullptr, {}};
            g_dbus_connection_register_object(bus_.get(), "/Scripting", node->interfaces[0],
                                              &methods, this, nullptr, nullptr);
            g_dbus_node_info_unref(node);
            g_bus_own_name_on_connection(bus_.get(), "org.kde.KWin", G_BUS_NAME_OWNER_FLAGS_NONE,
                                         nullptr, nullptr, nullptr, nullptr);
        });
    }
    ~FakeKWin() {
        thread_.invokeAndWait(
            [this] { g_dbus_connection_close_sync(bus_.get(), nullptr, nullptr); });
    }
    FakeKWin(const FakeKWin&) = delete;
    FakeKWin& operator=(const FakeKWin&) = delete;

    void say(const std::string& message) {
        thread_.invokeAndWait([&] { tell(bus_.get(), target_, message); });
    }
    static void tell(GDBusConnection* bus, const std::string& target, const std::string& message) {
        g_dbus_connection_call(bus, target.c_str(), "/app/mnemora/Windows", "app.mnemora.Windows",
                               "Tell", g_variant_new("(s)", message.c_str()), nullptr,
                               G_DBUS_CALL_FLAGS_NONE, 1000, nullptr, nullptr, nullptr);
    }
    [[nodiscard]] GDBusConnection* bus() const { return bus_.get(); }
    [[nodiscard]] std::string target() const { return target_; }
    std::atomic<int> loaded = 0;
    std::atomic<int> unloaded = 0;

  private:
    static void called(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                       const gchar* method, GVariant* arguments, GDBusMethodInvocation* call,
                       gpointer data) {
        auto* self = static_cast<FakeKWin*>(data);
        const std::string name = method;
        if (name == "loadScript") {
            const gchar *file = "", *plugin = "";
            g_variant_get(arguments, "(&s&s)", &file, &plugin);
            std::ifstream stream(file);
            const std::string text{std::istreambuf_iterator<char>(stream), {}};
            const std::string mark = "callDBus(\"";
            const auto begin = text.find(mark) + mark.size();
            self->target_ = text.substr(begin, text.find('"', begin) - begin);
            ++self->loaded;
            g_dbus_method_invocation_return_value(call, g_variant_new("(i)", 0));
        } else if (name == "unloadScript") {
            ++self->unloaded;
            g_dbus_method_invocation_return_value(call, g_variant_new("(b)", TRUE));
        } else {
            g_dbus_method_invocation_return_value(call, nullptr);
            tell(self->bus_.get(), self->target_, twoWindows);
        }
    }

    GRef<GDBusConnection> bus_;
    std::string target_;
    GLibThread thread_{"fake-kwin"};
};

constexpr test::Eventually eventually{20s};

std::string manyWindows(int count) {
    std::string message = "[";
    for (int i = 0; i < count; ++i)
        message += R"({"title":"one of many"},)";
    message.back() = count == 0 ? '[' : ' ';
    return message + "]";
}

TEST(KWinWindows, AreToldByAKWinThatComesAndGoesAndByNobodyElse) {
    ASSERT_NE(std::getenv("DBUS_SESSION_BUS_ADDRESS"), nullptr) << "to be run by dbus-run-session";
    const test::TemporaryHome home;
    setenv("XDG_RUNTIME_DIR", home.path().c_str(), 1);
    GLibThread thread("test-listener");
    auto windows = std::make_unique<KWinWindows>(thread, std::function<void()>());
    EXPECT_EQ(windows->read(5s)->windows, std::nullopt) << "no KWin";
    auto kwin = std::make_unique<FakeKWin>();
    const auto areTold = [&] { return windows->last().windows.has_value(); };
    ASSERT_TRUE(eventually(areTold));
    const auto script = home.path() / "mnemora/kwin-windows.js";
    EXPECT_EQ(std::filesystem::status(script).permissions(), std::filesystem::perms(0600));
    const auto changes = windows->last().changes;
    kwin->say(R"([{"id":"{2b1f}","title":"other","active":true,"application":"org.kde.kate"}])");
    const auto state = windows->read(5s);
    ASSERT_TRUE(state && state->windows);
    EXPECT_EQ(state->windows->front().title, "other");
    EXPECT_GT(state->changes, changes);
    const auto retitled = [&](const std::string& title) {
        kwin->say(R"([{"id":"{2b1f}","title":")" + title +
                  R"(","active":true,"application":"org.kde.kate"}])");
        return windows->read(5s)->changes;
    };
    EXPECT_EQ(retitled("third"), state->changes) << "a title alone";
    EXPECT_GT(retitled("Your password"), state->changes);
    EXPECT_GT(retitled("other"), state->changes + 1) << "what it withheld may still be painted";

    GRef<GDBusConnection> stranger(g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr));
    FakeKWin::tell(stranger.get(), kwin->target(), "[]");
    g_dbus_connection_flush_sync(stranger.get(), nullptr, nullptr);
    EXPECT_EQ(windows->read(5s)->windows->size(), 1U);
    for (const std::string& odd :
         {std::string("not JSON"), manyWindows(4097), std::string(17 << 20, ' ') + "[]"}) {
        kwin->say(twoWindows);
        EXPECT_EQ(windows->read(5s)->windows->size(), 2U);
        kwin->say(odd);
        EXPECT_EQ(windows->read(5s)->windows, std::nullopt) << "the former are outdated";
    }
    for (int i = 0; i < 2000; ++i)
        kwin->say(manyWindows(i % 100));
    kwin->say(R"([{"title":")" + std::string(1 << 20, 'x') + R"("}])");
    EXPECT_LE(windows->read(20s)->windows->front().title.size(), 65536U);

    kwin.reset();
    EXPECT_TRUE(eventually([&] { return !areTold(); }));
    kwin = std::make_unique<FakeKWin>();
    EXPECT_TRUE(eventually(areTold));
    windows.reset();
    EXPECT_TRUE(eventually([&] { return kwin->unloaded > 1; })) << "our script stayed behind";
}

} // namespace
} // namespace mnemora::wayland
