// A host on GLib's main loop, without a window: loads a configuration and prints the results.
//
//   kivresource-glib DIRECTORY SERVER FILE

#include <KivResource/KivResource.h>
#include <cstdio>
#include <fstream>
#include <glib.h>
#include <iterator>

namespace {

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

/// Called on the main queue; the manager has its own queue.
struct Listener : KivResourceManagerObserver {
  GMainLoop* loop = nullptr;
  int failures = 0;

  void resourceManager_didLoadResource(const std::shared_ptr<KivResourceManager>&,
                                       const std::shared_ptr<KivResource>& resource) override {
    std::printf("loaded %s\n", kiv::escapingControlCharacters(resource->name()).c_str());
  }
  void resourceManager_didFailToLoadResource_withError(
      const std::shared_ptr<KivResourceManager>&, const std::shared_ptr<KivResource>& resource,
      const std::optional<kiv::Error>& error) override {
    const std::string reason = error ? error->localizedDescription() : "no data came";
    std::printf("failed %s: %s\n", kiv::escapingControlCharacters(resource->name()).c_str(),
                reason.c_str());
    ++failures;
  }
  void resourceManagerDidFinishLoading(const std::shared_ptr<KivResourceManager>&) override {
    g_main_loop_quit(loop);
  }
};

}  // namespace

int main(int count, char** arguments) {
  if (count != 4) {
    std::fprintf(stderr, "usage: %s DIRECTORY SERVER FILE\n", arguments[0]);
    return 2;
  }
  KivStorageService::setRootPath(arguments[1]);
  KivAppConfiguration::sharedInstance()->setMainACSDomain(arguments[2]);
  std::ifstream file(arguments[3], std::ios::binary);
  const kiv::Data text(std::string(std::istreambuf_iterator<char>(file), {}));

  const GLibMainQueue mainQueue;
  const auto listener = std::make_shared<Listener>();
  listener->loop = g_main_loop_new(nullptr, FALSE);
  const auto queue = kiv::DispatchQueue::serial("resources");
  queue->async([listener, text] {
    const auto manager = KivResourceManager::sharedInstance();
    manager->addObserver(listener, kiv::DispatchQueue::main());
    manager->updateResourcesForConfig(kiv::JSON::read(text).value_or(kiv::Value()));
  });
  g_main_loop_run(listener->loop);
  g_main_loop_unref(listener->loop);
  return listener->failures == 0 ? 0 : 1;
}
