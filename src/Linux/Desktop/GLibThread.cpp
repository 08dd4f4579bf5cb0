#include "Linux/Desktop/GLibThread.h"

#include <future>
#include <glib.h>
#include <memory>
#include <pthread.h>
#include <utility>

namespace mnemora::desktop {
namespace {

using Job = std::function<void()>;

/// Rounds of the loop for what is due at its end; a source that never rests must not hold it.
constexpr int dueAtEnd = 100;

gboolean runJob(gpointer job) {
    (*static_cast<Job*>(job))();
    return G_SOURCE_REMOVE;
}

void dropJob(gpointer job) {
    const std::unique_ptr<Job> owned(static_cast<Job*>(job));
}

} // namespace

GLibThread::GLibThread(const std::string& name)
    : context_(g_main_context_new()), loop_(g_main_loop_new(context_, FALSE)),
      thread_([context = context_, loop = loop_, name] {
          pthread_setname_np(pthread_self(), name.substr(0, 15).c_str());
          g_main_context_push_thread_default(context);
          g_main_loop_run(loop);
          // What GIO has to let go of, it hands to this loop, also on behalf of what ended last.
          for (int i = 0; i < dueAtEnd && g_main_context_iteration(context, FALSE); ++i) {
          }
          g_main_context_pop_thread_default(context);
      }) {}

GLibThread::~GLibThread() {
    // From inside the loop, so that a thread that has not reached it yet ends too.
    invoke([loop = loop_] { g_main_loop_quit(loop); });
    thread_.join();
    g_main_loop_unref(loop_);
    g_main_context_unref(context_);
}

void GLibThread::invoke(std::function<void()> job) {
    auto owned = std::make_unique<Job>(std::move(job));
    GSource* source = g_idle_source_new();
    g_source_set_priority(source, G_PRIORITY_DEFAULT);
    g_source_set_callback(source, runJob, owned.release(), dropJob);
    g_source_attach(source, context_);
    g_source_unref(source);
}

void GLibThread::invokeAndWait(const std::function<void()>& job) {
    std::promise<void> done;
    invoke([&] {
        job();
        done.set_value();
    });
    done.get_future().wait();
}

} // namespace mnemora::desktop
