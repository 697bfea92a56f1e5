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

template <class Resource>
std::shared_ptr<KivResource> make(const kiv::Dictionary& dictionary, const std::string& engine) {
  return Resource::initWithDictionary_engine(dictionary, engine);
}

struct Kind {
  std::string_view engine;
  Initialiser initialiser;
  kiv::KindKeys (*requiredKeys)();
};

constexpr Kind kinds[] = {
    {"eco_standard", make<KivResourceStandard>, KivResourceStandard::requiredKeys},
    {"eco_video", make<KivResourceVideo>, KivResourceVideo::requiredKeys},
    {"eco_fs", make<KivResourceWeb>, KivResourceWeb::requiredKeys},
    {"eco_context", make<KivResourceWeb>, KivResourceWeb::requiredKeys},
};

/// nullptr for an engine that no kind claims.
const Kind* kindOfEngine(std::string_view engine) {
  for (const Kind& kind : kinds) {
    if (kind.engine == engine) return &kind;
  }
  return nullptr;
}

}  // namespace

std::shared_ptr<KivResource> KivResourceFactory::createResourceFromDictionary(
    const kiv::Dictionary& dictionary) {
  const kiv::Value& engine = dictionary["engine"];
  if (engine.isString()) {
    const Kind* const kind = kindOfEngine(engine.stringView());
    const Initialiser initialiser = kind ? kind->initialiser : make<KivResource>;
    if (auto resource = initialiser(dictionary, engine.string())) return resource;
  }
  kiv::SystemLog::write("Create resource error. Resource dictionary: " +
                        kiv::JSON::toCompactString(dictionary));
  return nullptr;
}

std::optional<kiv::KindKeys> KivResourceFactory::requiredKeysOfEngine(std::string_view engine) {
  const Kind* const kind = kindOfEngine(engine);
  return kind ? std::optional(kind->requiredKeys()) : std::nullopt;
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
