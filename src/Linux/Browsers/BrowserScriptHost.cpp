#include "Linux/Browsers/BrowserScriptHost.h"

#include "Linux/Browsers/BrowserConnections.h"
#include "Linux/Browsers/PageScript.h"

#include <algorithm>
#include <sys/syscall.h>
#include <unistd.h>

namespace mnemora::browsers {
namespace {

using std::chrono::milliseconds;

/// The extension gives a page one second, so within this time even a hung page has an answer.
constexpr milliseconds patience{1500};
/// Nothing on the main thread waits longer than 50 ms for anybody, not for all browsers in a row
/// either; the rest is left to the display server, which is asked which of them run.
constexpr milliseconds mainThreadPatience{30};
/// Questions within this time belong together.
constexpr milliseconds row{500};

bool onMainThread() {
    return syscall(SYS_gettid) == getpid();
}

ScriptResult error() {
    return {.failed = true, .text = std::nullopt};
}

ScriptResult result(std::optional<std::string> text) {
    return {.failed = !text.has_value(), .text = std::move(text)};
}

} // namespace

namespace {

/// What is left of the patience for several questions in a row. Main thread.
class SharedPatience {
  public:
    template <class Ask>
    auto during(const Ask& ask) {
        const auto begin = Clock::now();
        if (begin - begin_ > row) {
            begin_ = begin;
            spent_ = Clock::duration(0);
        }
        const auto left =
            std::max(Clock::duration(mainThreadPatience) - spent_, Clock::duration(0));
        auto answer = ask(std::chrono::duration_cast<milliseconds>(left));
        spent_ += Clock::now() - begin;
        return answer;
    }

  private:
    using Clock = std::chrono::steady_clock;
    Clock::time_point begin_{};
    Clock::duration spent_{};
};

} // namespace

struct BrowserScriptHost::Rules {
    BrowserScriptHostOptions options;
    std::unique_ptr<BrowserConnections> connections;
    mutable SharedPatience mainThread = {};

    [[nodiscard]] std::optional<PageAnswer> ask(const std::string& bundle, PageQuestion question,
                                                bool focused) const {
        const auto within = [&](milliseconds bound) {
            return focused ? connections->askFocused(bundle, question, bound)
                           : connections->askLastUsed(bundle, bound);
        };
        return onMainThread() ? mainThread.during(within) : within(patience);
    }

    [[nodiscard]] bool inFront(const std::string& bundle) const {
        return options.frontmostApplication() == bundle;
    }

    [[nodiscard]] ScriptResult execute(const PageScript& script, const std::string& text) const {
        if (!connections->has(script.bundleIdentifier))
            return executeByFallback(text);
        return script.question == PageQuestion::address ? address(script.bundleIdentifier)
                                                        : pageText(script.bundleIdentifier);
    }

    [[nodiscard]] ScriptResult executeByFallback(const std::string& text) const {
        const auto script = options.fallback ? options.fallback->compile(text) : nullptr;
        return script ? script->execute() : error();
    }

    [[nodiscard]] ScriptResult address(const std::string& bundle) const {
        const bool front = inFront(bundle);
        auto answer = ask(bundle, PageQuestion::address, front);
        if (answer) // a refusal has no address
            return result(std::move(answer->address));
        const auto told = onMainThread() ? connections->lastState(bundle, patience) : std::nullopt;
        return told && (told->focused || !front) ? result(told->address) : error();
    }

    [[nodiscard]] ScriptResult pageText(const std::string& bundle) const {
        if (!inFront(bundle))
            return error();
        const auto answer = ask(bundle, PageQuestion::text, true);
        // Looked at again: what came to the front meanwhile may be private.
        if (!answer || !inFront(bundle) ||
            std::any_of(answer->titles.begin(), answer->titles.end(),
                        [&](const auto& title) { return options.withholds(bundle, title); }))
            return error();
        if (options.conceals && (!answer->address || options.conceals(*answer->address)))
            return error();
        return result(answer->text);
    }
};

namespace {

/// Holds the rules, so that a script outlives its host.
template <class Rules>
class BrowserScript : public Script {
  public:
    BrowserScript(std::shared_ptr<Rules> rules, PageScript script, std::string text)
        : rules_(std::move(rules)), script_(std::move(script)), text_(std::move(text)) {}

    [[nodiscard]] ScriptResult execute() override { return rules_->execute(script_, text_); }

  private:
    std::shared_ptr<Rules> rules_;
    PageScript script_;
    std::string text_;
};

} // namespace

std::shared_ptr<BrowserScriptHost> BrowserScriptHost::create(BrowserScriptHostOptions options) {
    auto connections = BrowserConnections::create(options.socket, options.hostProgram);
    if (!connections)
        return nullptr;
    auto rules = std::make_shared<Rules>(Rules{std::move(options), std::move(connections)});
    return std::shared_ptr<BrowserScriptHost>(new BrowserScriptHost(std::move(rules)));
}

BrowserScriptHost::BrowserScriptHost(std::shared_ptr<Rules> rules) : rules_(std::move(rules)) {}

BrowserScriptHost::~BrowserScriptHost() = default;

bool BrowserScriptHost::hasExtension(const std::string& bundleIdentifier) const {
    return rules_->connections->has(bundleIdentifier);
}

std::unique_ptr<Script> BrowserScriptHost::compile(const std::string& text) {
    auto script = parsePageScript(text);
    if (!script)
        return nullptr;
    return std::make_unique<BrowserScript<Rules>>(rules_, std::move(*script), text);
}

} // namespace mnemora::browsers
