#pragma once
// A thread that runs a GLib main loop of its own, for what message buses and monitors have to say.

#include <functional>
#include <string>
#include <thread>

typedef struct _GMainContext GMainContext;
typedef struct _GMainLoop GMainLoop;

namespace mnemora::desktop {

/// Objects of GIO that are made inside invoke() deliver their signals and answers on this thread.
/// Nothing that runs here may wait for another program.
class GLibThread {
  public:
    /// `name` is what the thread is called in a debugger; at most 15 characters.
    explicit GLibThread(const std::string& name);
    /// Ends the loop and joins, after what is due by then.
    ~GLibThread();
    GLibThread(const GLibThread&) = delete;
    GLibThread& operator=(const GLibThread&) = delete;

    /// Runs `job` on the thread, after what was handed over before. Any thread.
    void invoke(std::function<void()> job);
    /// Runs `job` and waits for it. Any thread but this one.
    void invokeAndWait(const std::function<void()>& job);

    [[nodiscard]] GMainContext* context() const { return context_; }

  private:
    GMainContext* context_; // owned; GLib's types stay out of headers
    GMainLoop* loop_;       // owned
    std::thread thread_;
};

} // namespace mnemora::desktop
