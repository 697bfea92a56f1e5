#include "KivResource/KivResourceFactory.h"

#include <string>
#include <string_view>
#include <utility>

#include "KivPlatform/Foundation/system/SystemLog.h"
#include "KivPlatform/Foundation/values/JSON.h"
#include "KivResource/KivResourceStandard.h"
#include "KivResource/KivResourceVideo.h"
#include "KivResource/KivResourceWeb.h"

namespace {

using Initialiser = std::shared_ptr<KivResource> (*)(const kiv::Dictionary&, const std::string&);

template <class Kind>
std::shared_ptr<KivResource> make(const kiv::Dictionary& dictionary, const std::string& engine) {
  return Kind::initWithDictionary_engine(dictionary, engine);
}

constexpr std::pair<std::string_view, Initialiser> kinds[] = {
    {"eco_standard", make<KivResourceStandard>},
    {"eco_video", make<KivResourceVideo>},
    {"eco_fs", make<KivResourceWeb>},
    {"eco_context", make<KivResourceWeb>},
};

Initialiser initialiserForEngine(std::string_view engine) {
  for (const auto& [kindEngine, initialiser] : kinds) {
    if (kindEngine == engine) return initialiser;
  }
  return make<KivResource>;
}

}  // namespace

std::shared_ptr<KivResource> KivResourceFactory::createResourceFromDictionary(
    const kiv::Dictionary& dictionary) {
  const kiv::Value& engine = dictionary["engine"];
  if (engine.isString()) {
    const Initialiser initialiser = initialiserForEngine(engine.stringView());
    if (auto resource = initialiser(dictionary, engine.string())) return resource;
  }
  kiv::SystemLog::write("Create resource error. Resource dictionary: " +
                        kiv::JSON::toCompactString(dictionary));
  return nullptr;
}

std::vector<std::shared_ptr<KivResource>> KivResourceFactory::resourcesArrayForResourcesConfig(
    const kiv::Value& config) {
  std::vector<std::shared_ptr<KivResource>> resources;
  for (const kiv::Value& item : config.dictionary()["items"].array()) {
    if (!item.isDictionary()) continue;
    if (auto resource = createResourceFromDictionary(item.dictionary())) {
      resources.push_back(std::move(resource));
    }
  }
  return resources;
}
