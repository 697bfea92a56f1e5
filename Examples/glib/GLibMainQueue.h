#pragma once

#include <KivResource/KivResource.h>
#include <glib.h>

/// Lets a GLib main loop drain the framework's main queue. Depends only on GLib and the framework.
///
/// Create and destroy it on the thread that runs the loop. Drawing and input have a higher
/// priority.
class GLibMainQueue {
 public:
  explicit GLibMainQueue(GMainContext* context = nullptr)
      : source_(g_source_new(&functions, sizeof(GSource))) {
    g_source_set_priority(source_, G_PRIORITY_DEFAULT_IDLE);
    g_source_attach(source_, context);
    // Called on the thread that adds a job. g_source_set_ready_time() may be called on any thread,
    // and wakes the loop.
    kiv::DispatchQueue::main()->setWakeUpHandler([this] { g_source_set_ready_time(source_, 0); });
  }
  ~GLibMainQueue() {
    kiv::DispatchQueue::main()->setWakeUpHandler({});  // no thread is in the handler any more
    g_source_destroy(source_);
    g_source_unref(source_);
  }
  GLibMainQueue(const GLibMainQueue&) = delete;
  GLibMainQueue& operator=(const GLibMainQueue&) = delete;

 private:
  static gboolean dispatch(GSource* source, GSourceFunc, gpointer) {
    g_source_set_ready_time(source, -1);  // before the drain, which may ask for another
    kiv::DispatchQueue::main()->drain();
    return G_SOURCE_CONTINUE;
  }
  inline static GSourceFuncs functions{nullptr, nullptr, dispatch, nullptr, nullptr, nullptr};

  GSource* source_;
};
