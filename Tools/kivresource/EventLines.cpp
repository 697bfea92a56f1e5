#include "Tools/kivresource/EventLines.h"

#include "Tools/kivresource/ResourceJSON.h"

namespace tool {

void EventLines::resourceManager_didLoadResource(const std::shared_ptr<KivResourceManager>&,
                                                 const std::shared_ptr<KivResource>& resource) {
  printJSONLine(
      kiv::Dictionary{{"event", "didLoadResource"}, {"resource", resourceJSON(*resource)}});
}

void EventLines::resourceManager_didFailToLoadResource_withError(
    const std::shared_ptr<KivResourceManager>&, const std::shared_ptr<KivResource>& resource,
    const std::optional<kiv::Error>& error) {
  printJSONLine(kiv::Dictionary{{"event", "didFailToLoadResource"},
                                {"resource", resourceJSON(*resource)},
                                {"error", errorJSON(error)}});
}

void EventLines::resourceManagerDidFinishLoading(const std::shared_ptr<KivResourceManager>&) {
  printJSONLine(kiv::Dictionary{{"event", "didFinishLoading"}});
}

}  // namespace tool
