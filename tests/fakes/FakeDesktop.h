#pragma once
// A desktop that a test arranges by hand, on a virtual clock.

#include "Platform/DesktopServices.h"

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace mnemora::test {

/// Runs posted and background jobs and due timers when the test says so.
class FakeMainLoop : public MainLoop {
  public:
    void post(std::function<void()> job) override { posted_.push_back(std::move(job)); }
    std::unique_ptr<Timer> every(std::chrono::milliseconds interval,
                                 std::function<void()> job) override {
        return schedule(interval, interval, std::move(job));
    }
    std::unique_ptr<Timer> after(std::chrono::milliseconds delay,
                                 std::function<void()> job) override {
        return schedule(delay, std::chrono::milliseconds(0), std::move(job));
    }
    void background(std::function<void()> job) override { background_.push_back(std::move(job)); }

    /// Runs what is due within `time`, and all jobs that come of it.
    void advance(std::chrono::milliseconds time) {
        const auto end = now_ + time;
        runJobs();
        for (auto next = due(end); next != timers_.end(); next = due(end)) {
            now_ = (*next)->at;
            const auto entry = *next;
            if (entry->interval.count() > 0)
                entry->at += entry->interval;
            else
                timers_.erase(next);
            entry->job();
            runJobs();
        }
        now_ = end;
    }
    /// Runs everything that waits, without letting time pass.
    void runJobs() {
        while (!posted_.empty() || !background_.empty()) {
            auto& list = posted_.empty() ? background_ : posted_;
            const auto job = std::move(list.front());
            list.erase(list.begin());
            job();
        }
    }
    [[nodiscard]] size_t waitingInBackground() const { return background_.size(); }

  private:
    struct Entry {
        std::chrono::milliseconds at;
        std::chrono::milliseconds interval;
        std::function<void()> job;
    };
    using Entries = std::vector<std::shared_ptr<Entry>>;
    struct Handle : Timer {
        Handle(FakeMainLoop& owner, std::shared_ptr<Entry> timer)
            : loop(owner), entry(std::move(timer)) {}
        Handle(const Handle&) = delete;
        Handle& operator=(const Handle&) = delete;
        ~Handle() override { std::erase(loop.timers_, entry); }
        FakeMainLoop& loop;
        std::shared_ptr<Entry> entry;
    };
    std::unique_ptr<Timer> schedule(std::chrono::milliseconds delay,
                                    std::chrono::milliseconds interval, std::function<void()> job) {
        timers_.push_back(std::make_shared<Entry>(now_ + delay, interval, std::move(job)));
        return std::make_unique<Handle>(*this, timers_.back());
    }
    Entries::iterator due(std::chrono::milliseconds end) {
        const auto first = std::ranges::min_element(timers_, {}, [](auto& e) { return e->at; });
        return first != timers_.end() && (*first)->at <= end ? first : timers_.end();
    }

    std::chrono::milliseconds now_{0};
    Entries timers_;
    std::vector<std::function<void()>> posted_;
    std::vector<std::function<void()>> background_;
};

struct FakeWorkspace : Workspace {
    std::optional<RunningApplication> front;
    std::map<std::string, std::vector<RunningApplication>> running;
    std::vector<std::string> opened;

    std::optional<RunningApplication> frontmostApplication() override { return front; }
    std::unique_ptr<Observation> observeActivation(
        std::function<void(const std::optional<RunningApplication>&)> /*f*/) override {
        return std::make_unique<Observation>();
    }
    std::vector<RunningApplication> runningApplications(const std::string& bundle) override {
        return running[bundle];
    }
    bool open(const std::string& address) override {
        opened.push_back(address);
        return true;
    }
};

struct FakeAccessibility : Accessibility {
    bool trusted = true;
    std::map<int, FocusedWindow> windows;

    bool isProcessTrusted() override { return trusted; }
    std::optional<FocusedWindow> focusedWindow(int process) override {
        const auto window = windows.find(process);
        return window == windows.end() ? std::nullopt : std::optional(window->second);
    }
};

struct FakeScreenCapture : ScreenCapture {
    bool permitted = true;
    Outcome<std::vector<Display>> list =
        std::vector<Display>{{.identifier = 1, .width = 4, .height = 2}};
    std::optional<std::string> failure;
    int pictures = 0;

    bool isPermitted() override { return permitted; }
    Outcome<std::vector<Display>> displays() override { return list; }
    Outcome<Image> image(const Display& display, int width, int height) override {
        ++pictures;
        if (failure)
            return Failure{*failure};
        return Image{
            .width = width, .height = height, .stride = display.identifier, .pixels = nullptr};
    }
};

struct FakeTextRecognizer : TextRecognizer {
    std::vector<RecognizedLine> lines;
    std::vector<Image> seen;

    std::vector<RecognizedLine> recognize(const Image& image) override {
        seen.push_back(image);
        return lines;
    }
};

/// Answers by script text; an unknown one doesn't compile.
struct FakeScriptHost : ScriptHost {
    std::map<std::string, ScriptResult> answers;
    std::vector<std::string> compiled;

    std::unique_ptr<Script> compile(const std::string& text) override {
        struct Fixed : Script {
            ScriptResult result;
            ScriptResult execute() override { return result; }
        };
        compiled.push_back(text);
        if (!answers.contains(text))
            return nullptr;
        auto script = std::make_unique<Fixed>();
        script->result = answers[text];
        return script;
    }
};

/// All of them, installed for its scope.
struct FakeDesktop {
    std::shared_ptr<FakeMainLoop> loop = std::make_shared<FakeMainLoop>();
    std::shared_ptr<FakeWorkspace> workspace = std::make_shared<FakeWorkspace>();
    std::shared_ptr<FakeAccessibility> accessibility = std::make_shared<FakeAccessibility>();
    std::shared_ptr<FakeScreenCapture> screen = std::make_shared<FakeScreenCapture>();
    std::shared_ptr<FakeTextRecognizer> recognizer = std::make_shared<FakeTextRecognizer>();
    std::shared_ptr<FakeScriptHost> scripts = std::make_shared<FakeScriptHost>();
    ScopedDesktopServices installed{{.mainLoop = loop,
                                     .workspace = workspace,
                                     .accessibility = accessibility,
                                     .screenCapture = screen,
                                     .textRecognizer = recognizer,
                                     .scriptHost = scripts}};

    /// Brings an application to the front, its window titled as given.
    void bringToFront(const std::string& bundle, const std::string& name,
                      std::optional<std::string> title) {
        workspace->front = RunningApplication{
            .bundleIdentifier = bundle, .localizedName = name, .processIdentifier = 7};
        accessibility->windows[7] = FocusedWindow{.title = std::move(title)};
    }
};

} // namespace mnemora::test
