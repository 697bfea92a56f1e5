#include "KivSession/SessionEvents.h"

#include "KivSession/ResourceJSON.h"

namespace kiv::session {

void SessionEvents::resourceManager_didLoadResource(const std::shared_ptr<KivResourceManager>&,
                                                    const std::shared_ptr<KivResource>& resource) {
  orReportLoss([&] {
    writeLine({{"event", "didLoadResource"}, {"resource", resourceJSON(*resource)}});
  });
}

void SessionEvents::resourceManager_didFailToLoadResource_withError(
    const std::shared_ptr<KivResourceManager>&, const std::shared_ptr<KivResource>& resource,
    const std::optional<Error>& error) {
  orReportLoss([&] {
    writeLine({{"event", "didFailToLoadResource"},
               {"resource", resourceJSON(*resource)},
               {"error", errorJSON(error)}});
  });
}

void SessionEvents::resourceManagerDidFinishLoading(const std::shared_ptr<KivResourceManager>&) {
  orReportLoss([&] { writeLine({{"event", "didFinishLoading"}}); });
}

Dictionary requestLine(std::uint64_t number, const URL& url) {
  return {{"event", "request"}, {"request", number}, {"url", url.absoluteString()}};
}

Dictionary progressLine(const KivRESTServiceProgress& progress) {
  return {{"event", "progress"},
          {"completedFiles", progress.tasksEnded},
          {"files", progress.tasksWaiting + progress.tasksRunning + progress.tasksEnded},
          {"receivedBytes", progress.bytesReceived},
          {"expectedBytes", progress.bytesExpected},
          {"runningTransfers", progress.tasksRunning},
          {"bytesPerSecond", progress.bytesPerSecond}};
}

}  // namespace kiv::session
