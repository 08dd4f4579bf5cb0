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
/// Nothing on the main thread waits longer than 50 ms for anybody.
constexpr milliseconds mainThreadPatience{45};

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

struct BrowserScriptHost::Rules {
    BrowserScriptHostOptions options;
    std::unique_ptr<BrowserConnections> connections;

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
        const bool mayWait = !onMainThread();
        const auto bound = mayWait ? patience : mainThreadPatience;
        auto answer = front ? connections->askFocused(bundle, PageQuestion::address, bound)
                            : connections->askLastUsed(bundle, bound);
        if (answer) // a refusal has no address
            return result(std::move(answer->address));
        const auto told = mayWait ? std::nullopt : connections->lastState(bundle, patience);
        return told && (told->focused || !front) ? result(told->address) : error();
    }

    [[nodiscard]] ScriptResult pageText(const std::string& bundle) const {
        if (!inFront(bundle))
            return error();
        auto answer = connections->askFocused(bundle, PageQuestion::text,
                                              onMainThread() ? mainThreadPatience : patience);
        // Looked at again: what came to the front meanwhile may be private.
        if (!answer || !inFront(bundle) ||
            std::any_of(answer->titles.begin(), answer->titles.end(),
                        [&](const auto& title) { return options.withholds(bundle, title); }))
            return error();
        if (options.conceals && (!answer->address || options.conceals(*answer->address)))
            return error();
        return result(std::move(answer->text));
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
