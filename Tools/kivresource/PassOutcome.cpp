#include "Tools/kivresource/PassOutcome.h"

#include <utility>

#include "Tools/kivresource/ConfigurationCheck.h"

namespace tool {

Expected Expected::of(const kiv::Value& config, const std::optional<std::string>& id,
                      const std::optional<std::string>& type) {
  Expected expected;
  kiv::SystemLog::setHandler([](std::string_view) {});
  std::size_t place = 0;
  for (const auto& item : config.dictionary()["items"].array()) {
    ++place;
    auto resource = KivResourceFactory::createResourceFromDictionary(item.dictionary());
    if (!resource) {
      expected.unacceptable.push_back({place, validateItem(item)});
    } else if ((!id || resource->resourceID() == *id) && (!type || resource->type() == *type)) {
      if (auto remark = remarkOn(*resource); !remark.empty())
        expected.odd.push_back({place, std::move(remark)});
      expected.resources.push_back(std::move(resource));
    }
  }
  kiv::SystemLog::setHandler({});
  return expected;
}

kiv::ResourceArray PassOutcome::unheardOf(const Expected& expected) const {
  auto heard = loadedByID_;
  for (const auto& resource : failed_)
    ++heard[resource->resourceID()];
  kiv::ResourceArray silent;
  for (const auto& resource : expected.resources) {
    auto& count = heard[resource->resourceID()];
    if (count == 0) {
      silent.push_back(resource);
    } else {
      --count;
    }
  }
  return silent;
}

void PassOutcome::resourceManager_didLoadResource(const std::shared_ptr<KivResourceManager>&,
                                                  const std::shared_ptr<KivResource>& resource) {
  ++loaded_;
  ++loadedByID_[resource->resourceID()];
}

void PassOutcome::resourceManager_didFailToLoadResource_withError(
    const std::shared_ptr<KivResourceManager>&, const std::shared_ptr<KivResource>& resource,
    const std::optional<kiv::Error>&) {
  failed_.insert(resource);
}

}  // namespace tool
