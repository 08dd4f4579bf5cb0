#include "Linux/Browsers/BrowserScriptHost.h"
#include "Browsers/FakeExtension.h"
#include "Linux/Browsers/BrowserConnections.h"
#include "Linux/Browsers/PeerProcess.h"

#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <latch>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace mnemora;
using namespace mnemora::browsers;
using Json = nlohmann::json;
using std::chrono::milliseconds;

namespace {

constexpr auto chrome = "com.google.Chrome";
constexpr auto chromium = "/usr/lib/chromium/chromium";
constexpr auto addressScript =
    "tell application \"Google Chrome\" to return URL of active tab of front window";
constexpr auto textScript = "tell application \"Google Chrome\" to return (execute active tab of "
                            "front window javascript \"document.body.innerText\")";
constexpr milliseconds longTime{10'000};

std::optional<Json> silence(const Json&) {
    return std::nullopt;
}

std::optional<Json> refuse(const Json& request) {
    if (!request.contains("id"))
        return std::nullopt;
    return Json{{"id", request["id"]}, {"refused", "no"}};
}

/// Answers from a page with this address, whose text is "text of " and the address.
FakeExtension::Answer page(const std::string& address) {
    return [address](const Json& request) -> std::optional<Json> {
        if (!request.contains("id"))
            return std::nullopt;
        Json answer{{"id", request["id"]},
                    {"focused", true},
                    {"address", address},
                    {"titles", {"T", "later title of " + address}}};
        if (request["ask"] == "text")
            answer["text"] = "text of " + address;
        return answer;
    };
}

std::string state(bool focused, const std::string& address, double used) {
    return Json{{"state", {{"focused", focused}, {"address", address}, {"used", used}}}}.dump();
}

class BrowserScriptHostTest : public testing::Test {
  protected:
    /// The peers of these tests run in this very program.
    static std::filesystem::path program() { return executableOf(getpid()); }

    std::unique_ptr<BrowserConnections> connections() const {
        return BrowserConnections::create(socket_, program());
    }

    /// A connection on which everything was said that the host program says.
    FileDescriptor introduced() const {
        auto peer = connectTo(socket_);
        const auto hello = framed(helloMessage({.browser = chromium}));
        if (peer)
            (void)send(peer.get(), hello.data(), hello.size(), MSG_NOSIGNAL);
        return peer;
    }

    std::shared_ptr<BrowserScriptHost> host(std::shared_ptr<ScriptHost> fallback = nullptr) {
        return BrowserScriptHost::create({.socket = socket_,
                                          .hostProgram = program(),
                                          .frontmostApplication = [this] { return front_; },
                                          .withholds = [](auto&, auto&) { return false; },
                                          .fallback = std::move(fallback)});
    }

    /// On another thread than the main one, as the sampler does.
    static ScriptResult run(ScriptHost& host, const std::string& text) {
        ScriptResult result;
        std::thread([&] { result = host.compile(text)->execute(); }).join();
        return result;
    }

    test::TemporaryFolder folder_;
    const std::filesystem::path socket_ = folder_ / "run" / "pages.sock";
    std::optional<std::string> front_ = chrome;
};

TEST_F(BrowserScriptHostTest, TheProfileWithTheFocusAnswersElseTheOneUsedLast) {
    const auto all = connections();
    FakeExtension first(socket_, chromium, refuse);
    FakeExtension second(socket_, "/opt/google/chrome/chrome", page("second:"));
    FakeExtension edge(socket_, "/opt/microsoft/msedge/msedge", page("edge:"));
    first.say(state(false, "first:", 1000));
    second.say(state(true, "second:", 900));
    ASSERT_TRUE(eventually([&] {
        const auto told = all->lastState(chrome, longTime);
        return told && told->focused && all->has("com.microsoft.edgemac");
    }));
    const auto focused = all->askFocused(chrome, PageQuestion::text, longTime);
    ASSERT_TRUE(focused);
    EXPECT_EQ(focused->text, "text of second:");
    EXPECT_EQ(all->askLastUsed("com.microsoft.edgemac", longTime)->address, "edge:");

    second.say(state(false, "second:", 900));
    ASSERT_TRUE(eventually([&] { return all->lastState(chrome, longTime)->address == "first:"; }));
    EXPECT_TRUE(all->askLastUsed(chrome, longTime)->refused);
}

TEST_F(BrowserScriptHostTest, ARefusalOfAConnectedExtensionIsFinal) {
    struct Fallback : ScriptHost {
        std::unique_ptr<Script> compile(const std::string&) override {
            struct Answering : Script {
                ScriptResult execute() override { return {.failed = false, .text = "fallback"}; }
            };
            return std::make_unique<Answering>();
        }
    };
    const auto scripts = host(std::make_shared<Fallback>());
    EXPECT_EQ(run(*scripts, textScript).text, "fallback");
    {
        FakeExtension extension(socket_, chromium, refuse);
        extension.say(state(true, "stale:", 1000));
        ASSERT_TRUE(eventually([&] { return scripts->hasExtension(chrome); }));
        for (const char* text : {addressScript, textScript}) {
            EXPECT_TRUE(run(*scripts, text).failed) << text;
            // Nor does what was told before the refusal count.
            EXPECT_TRUE(scripts->compile(text)->execute().failed) << text;
        }
    }
    ASSERT_TRUE(eventually([&] { return !scripts->hasExtension(chrome); }));
    EXPECT_EQ(run(*scripts, addressScript).text, "fallback");
}

TEST_F(BrowserScriptHostTest, NoAnswerFromABrowserThatLeavesTheFrontMeanwhile) {
    std::atomic<bool> asked = false;
    const auto scripts = BrowserScriptHost::create(
        {.socket = socket_,
         .hostProgram = program(),
         .frontmostApplication = [&]() -> std::optional<std::string> {
             return asked ? std::nullopt : std::optional<std::string>(chrome);
         },
         .withholds = [](auto&, auto&) { return false; },
         .fallback = nullptr});
    FakeExtension extension(socket_, chromium, [&](const Json& request) {
        asked = request.contains("id");
        return page("page:")(request);
    });
    ASSERT_TRUE(eventually([&] { return scripts->hasExtension(chrome); }));
    EXPECT_TRUE(run(*scripts, textScript).failed);
}

TEST_F(BrowserScriptHostTest, NoTextOfAPageThatBelongsToAConcealedApplication) {
    const auto scripts = BrowserScriptHost::create(
        {.socket = socket_,
         .hostProgram = program(),
         .frontmostApplication = [this] { return front_; },
         .withholds = [](auto&,
                         const std::string& title) { return title == "later title of bank:"; },
         .conceals = [](const std::string& address) { return address == "vault:"; },
         .fallback = nullptr});
    for (const char* address : {"vault:", "bank:", "page:"}) {
        FakeExtension extension(socket_, chromium, page(address));
        ASSERT_TRUE(eventually([&] { return run(*scripts, addressScript).text == address; }));
        EXPECT_EQ(run(*scripts, textScript).failed, address != std::string("page:")) << address;
    }
}

TEST_F(BrowserScriptHostTest, ASilentBrowserIsAnErrorAndWhatItToldIsForgotten) {
    const auto all = connections();
    FakeExtension extension(socket_, chromium, silence);
    extension.say(state(true, "told:", 1000));
    ASSERT_TRUE(eventually([&] { return all->lastState(chrome, longTime).has_value(); }));
    EXPECT_FALSE(all->askFocused(chrome, PageQuestion::text, milliseconds(20)));
    EXPECT_EQ(all->lastState(chrome, longTime)->address, "told:");
    EXPECT_TRUE(eventually([&] { return !all->lastState(chrome, milliseconds(50)); }));
    // However often it is asked.
    for (int times = 0; times < 200; ++times) {
        const auto answer = all->askFocused(chrome, PageQuestion::text, milliseconds(0));
        EXPECT_TRUE(!answer || answer->refused);
    }
    EXPECT_TRUE(eventually([&] { return !all->has(chrome); })) << "it has to connect anew";
}

TEST_F(BrowserScriptHostTest, SeveralHungBrowsersKeepTheMainThreadNoLongerThanOne) {
    const auto scripts = host();
    front_ = "app.mnemora.Mnemora";
    FakeExtension first(socket_, chromium, silence);
    FakeExtension second(socket_, "/opt/microsoft/msedge/msedge", silence);
    FakeExtension third(socket_, "/opt/brave.com/brave/brave", silence);
    third.say(state(true, "told:", 1000));
    const auto script = [&](const std::string& name) {
        return scripts->compile("tell application \"" + name +
                                "\" to return URL of active tab of front window");
    };
    ASSERT_TRUE(eventually([&] {
        return scripts->hasExtension(chrome) && scripts->hasExtension("com.microsoft.edgemac") &&
               scripts->hasExtension("com.brave.Browser");
    }));
    // As the setup window asks: for access, then whether it is there.
    const auto begin = std::chrono::steady_clock::now();
    for (int round = 0; round < 3; ++round) {
        EXPECT_TRUE(script("Google Chrome")->execute().failed);
        EXPECT_TRUE(script("Microsoft Edge")->execute().failed);
        (void)script("Brave Browser")->execute();
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, milliseconds(50));
    EXPECT_TRUE(eventually([&] { return script("Brave Browser")->execute().text == "told:"; }));
}

TEST_F(BrowserScriptHostTest, AnswersToQuestionsOfOthersAreDropped) {
    const auto all = connections();
    std::latch asked(1);
    FakeExtension liar(socket_, "/opt/brave.com/brave/brave",
                       [&](const Json&) { return std::nullopt; });
    FakeExtension slow(socket_, chromium, [&](const Json& request) -> std::optional<Json> {
        if (!request.contains("id"))
            return std::nullopt;
        for (int number = 0; number < 10; ++number)
            liar.say(Json{{"id", number}, {"address", "lie:"}, {"text", "lie"}}.dump());
        liar.say(state(true, "after:", 1));
        asked.count_down();
        EXPECT_TRUE(
            eventually([&] { return all->lastState("com.brave.Browser", longTime).has_value(); }));
        return page("truth:")(request);
    });
    ASSERT_TRUE(eventually([&] { return all->has(chrome) && all->has("com.brave.Browser"); }));
    const auto answer = all->askFocused(chrome, PageQuestion::text, longTime);
    asked.wait();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->text, "text of truth:");
}

TEST_F(BrowserScriptHostTest, GarbageEndsOnlyTheConnectionThatItCameOn) {
    const auto all = connections();
    FakeExtension good(socket_, chromium, page("good:"));
    ASSERT_TRUE(eventually([&] { return all->has(chrome); }));
    const std::string hello = framed(R"({"hello":{"browser":"/usr/lib/chromium/chromium"}})");
    for (const auto& garbage :
         {std::string(4, '\xff'), std::string(4, '\0'), framed("no json"), framed("[]"),
          framed(R"({"hello":{"browser":"/opt/vivaldi/vivaldi-bin"}})"),
          framed(state(true, "before the hello", 1)), hello + framed("{}"), hello + hello,
          hello + std::string("\x01\x00\x00\x7f", 4)}) {
        const auto peer = connectTo(socket_);
        ASSERT_TRUE(writeAll(peer.get(), garbage));
        EXPECT_TRUE(hangsUp(peer.get())) << garbage;
    }
    const auto silent = connectTo(socket_);
    EXPECT_TRUE(hangsUp(silent.get())) << "without a hello";
    EXPECT_EQ(all->askFocused(chrome, PageQuestion::text, longTime)->text, "text of good:");
}

TEST_F(BrowserScriptHostTest, OnlyTheHostProgramIsSpokenTo) {
    std::ofstream(folder_ / "other");
    // One that says nothing is hung up on whoever it is, so each says what the host program would.
    const auto all = BrowserConnections::create(socket_, folder_ / "other");
    const auto peer = introduced();
    ASSERT_TRUE(peer);
    EXPECT_TRUE(hangsUp(peer.get()));
}

TEST_F(BrowserScriptHostTest, AnotherUserIsTurnedAwayTwice) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can become another user";
    const auto all = connections();
    /// Exit status of a child process of another user: 0 when it could not connect at all, 1 when
    /// it was hung up on, 2 when it was listened to.
    const auto asNobody = [&] {
        const pid_t child = fork();
        if (child == 0) {
            constexpr uid_t nobody = 65534;
            if (setgid(nobody) != 0 || setuid(nobody) != 0)
                _exit(3);
            const auto peer = introduced();
            _exit(!peer ? 0 : hangsUp(peer.get()) ? 1 : 2);
        }
        int status = 0;
        waitpid(child, &status, 0);
        return WEXITSTATUS(status);
    };
    EXPECT_EQ(asNobody(), 0) << "the folder is private";
    chmod(folder_.path().c_str(), 0755);
    chmod(socket_.parent_path().c_str(), 0755);
    chmod(socket_.c_str(), 0666);
    EXPECT_EQ(asNobody(), 1) << "the peer's user is looked at";
}

TEST_F(BrowserScriptHostTest, AStarterTakesTheSocketOverAndTheFormerOneLeavesItThere) {
    auto former = connections();
    const auto next = connections();
    ASSERT_TRUE(former && next);
    former.reset();
    FakeExtension extension(socket_, chromium, page("page:"));
    EXPECT_TRUE(eventually([&] { return next->has(chrome); }));
    EXPECT_FALSE(BrowserConnections::create("/proc/nowhere/pages.sock", program()));
    EXPECT_FALSE(BrowserConnections::create(folder_ / std::string(200, 'x'), program()));
}

} // namespace
