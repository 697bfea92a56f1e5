// The kinds of the framework are a table. Those of the host are asked only for an engine that is
// not in it.

#include "KivResource/KivResourceFactory.h"

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <typeinfo>
#include <utility>

#include "KivPlatform/Foundation/Mutex.h"
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

/// nullptr for an engine that no kind of the framework claims.
const Kind* kindOfEngine(std::string_view engine) {
  for (const Kind& kind : kinds) {
    if (kind.engine == engine) return &kind;
  }
  return nullptr;
}

/// A kind of the host's.
struct HostsKind {
  KivResourceFactory::Maker maker;
  kiv::KindKeys keys;
};

/// Never destroyed: other threads may still make resources while the process exits.
struct HostsKinds {
  kiv::Mutex mutex;
  std::map<std::string, std::shared_ptr<const HostsKind>, std::less<>> byEngine
      KIV_GUARDED_BY(mutex);
  std::set<std::string, std::less<>> keys KIV_GUARDED_BY(mutex);  ///< To which kinds' keys point.
};

HostsKinds& hostsKinds() {
  static auto& known = *new HostsKinds;
  return known;
}

/// nullptr for an engine that the host has not registered.
std::shared_ptr<const HostsKind> hostsKindOfEngine(std::string_view engine) {
  HostsKinds& known = hostsKinds();
  const kiv::MutexLock lock(known.mutex);
  const auto found = known.byEngine.find(engine);
  return found == known.byEngine.end() ? nullptr : found->second;
}

std::shared_ptr<KivResource> makeResource(const kiv::Dictionary& dictionary,
                                          const std::string& engine) {
  if (const Kind* const kind = kindOfEngine(engine)) return kind->initialiser(dictionary, engine);
  if (const auto kind = hostsKindOfEngine(engine)) return kind->maker(dictionary, engine);
  return KivResource::initWithDictionary_engine(dictionary, engine);
}

kiv::Error registrationError(KivResourceFactoryErrorCode code, std::string_view engine,
                             std::string_view reason) {
  std::string message = "The kind with the engine \"";
  message.append(engine).append("\" cannot be registered: ").append(reason).append(".");
  return kiv::Error(KivResourceFactoryErrorDomain, static_cast<std::int64_t>(code), message);
}

/// The example with the common keys that it lacks.
kiv::Dictionary completed(const kiv::Dictionary& example, std::string_view engine) {
  kiv::Dictionary item = example;
  item.set("engine", engine);
  for (const std::string_view key : KivResource::requiredStrings) {
    if (item[key].isNull()) item.set(key, "example");
  }
  for (const std::string_view key : KivResource::requiredNumbers) {
    if (item[key].isNull()) item.set(key, 0);
  }
  return item;
}

/// Nothing if the maker's resources can be used.
std::optional<kiv::Error> validate(const KivResourceFactory::Maker& maker, std::string_view engine,
                                   const kiv::Dictionary& example) {
  using Code = KivResourceFactoryErrorCode;
  const auto resource = maker ? maker(completed(example, engine), std::string(engine)) : nullptr;
  if (!resource) {
    return registrationError(Code::exampleNotValid, engine, "it makes no resource of the example");
  }
  const auto copy = resource->copyWithZone();
  const KivResource& original = *resource;
  if (copy) {
    const KivResource& copied = *copy;
    if (typeid(copied) == typeid(original)) return std::nullopt;
  }
  return registrationError(Code::notCopyable, engine,
                           "its resources cannot be copied, for want of a default constructor or "
                           "an override of emptyInstance()");
}

std::string missing(const kiv::Dictionary& item, std::string_view key, std::string_view wanted) {
  std::string reason;
  if (item[key].isNull()) {
    reason.append("lacks \"").append(key).append("\", a ").append(wanted);
  } else {
    reason.append("has no ").append(wanted).append(" under \"").append(key).append("\"");
  }
  return reason;
}

}  // namespace

std::shared_ptr<KivResource> KivResourceFactory::createResourceFromDictionary(
    const kiv::Dictionary& dictionary) {
  const kiv::Value& engine = dictionary["engine"];
  if (engine.isString()) {
    if (auto resource = makeResource(dictionary, engine.string())) return resource;
  }
  kiv::SystemLog::write("Create resource error. Resource dictionary: " +
                        kiv::JSON::toCompactString(dictionary));
  return nullptr;
}

std::optional<kiv::KindKeys> KivResourceFactory::requiredKeysOfEngine(std::string_view engine) {
  if (const Kind* const kind = kindOfEngine(engine)) return kind->requiredKeys();
  const auto kind = hostsKindOfEngine(engine);
  return kind ? std::optional(kind->keys) : std::nullopt;
}

bool KivResourceFactory::registerKind(std::string_view engine, Maker maker,
                                      const kiv::Dictionary& example,
                                      std::optional<kiv::Error>* error) {
  auto failure = validate(maker, engine, example);
  HostsKinds& known = hostsKinds();
  const kiv::MutexLock lock(known.mutex);
  if (engine.empty() || kindOfEngine(engine) || known.byEngine.contains(engine)) {
    failure = registrationError(KivResourceFactoryErrorCode::engineNotFree, engine,
                                "the engine is empty or taken");
  }
  if (failure) {
    if (error) *error = std::move(failure);
    return false;
  }
  kiv::KindKeys keys;
  for (const auto& member : example) {
    if (member.value.isString()) {
      keys.strings.emplace_back(*known.keys.emplace(member.key()).first);
    }
  }
  known.byEngine.emplace(
      engine, std::make_shared<const HostsKind>(HostsKind{std::move(maker), std::move(keys)}));
  return true;
}

bool KivResourceFactory::unregisterKind(std::string_view engine) {
  std::shared_ptr<const HostsKind> kind;  // destroyed after the lock: the maker may own anything
  HostsKinds& known = hostsKinds();
  const kiv::MutexLock lock(known.mutex);
  const auto found = known.byEngine.find(engine);
  if (found == known.byEngine.end()) return false;
  kind = std::move(found->second);
  known.byEngine.erase(found);
  return true;
}

std::optional<std::string> KivResourceFactory::validateItem(const kiv::Value& item) {
  if (!item.isDictionary()) return "is no JSON object";
  const kiv::Dictionary& dictionary = item.dictionary();
  std::vector<std::string_view> strings{"engine"};
  strings.insert(strings.end(), KivResource::requiredStrings.begin(),
                 KivResource::requiredStrings.end());
  if (const auto keys = requiredKeysOfEngine(dictionary["engine"].stringView()))
    strings.insert(strings.end(), keys->strings.begin(), keys->strings.end());
  for (const std::string_view key : strings) {
    if (!dictionary[key].isString()) return missing(dictionary, key, "string");
  }
  for (const std::string_view key : KivResource::requiredNumbers) {
    if (!dictionary[key].isNumber()) return missing(dictionary, key, "number");
  }
  return std::nullopt;
}

std::vector<std::shared_ptr<KivResource>> KivResourceFactory::resourceOfEachItemOfConfig(
    const kiv::Value& config) {
  std::vector<std::shared_ptr<KivResource>> resources;
  for (const kiv::Value& item : config.dictionary()["items"].array()) {
    resources.push_back(item.isDictionary() ? createResourceFromDictionary(item.dictionary())
                                            : nullptr);
  }
  return resources;
}

std::vector<std::shared_ptr<KivResource>> KivResourceFactory::resourcesArrayForResourcesConfig(
    const kiv::Value& config) {
  auto resources = resourceOfEachItemOfConfig(config);
  std::erase(resources, nullptr);
  return resources;
}
