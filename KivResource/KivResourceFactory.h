#pragma once

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/values/Value.h"
#include "KivResource/KivResourceObject.h"

/// Makes resources from resource dictionaries: the string under "engine" chooses the class, and
/// that class decides whether the dictionary is acceptable.
///
/// It has no state; its operations may be called from any thread.
class KIV_EXPORT KivResourceFactory {
 public:
  KivResourceFactory() = delete;

  /// A new resource of the dictionary, or nullptr, with one line in the system log, where it has no
  /// engine or is not acceptable. An engine that no kind claims makes a plain KivResource.
  static std::shared_ptr<KivResource> createResourceFromDictionary(
      const kiv::Dictionary& dictionary);

  /// The keys that the engine's kind asks for beyond those of every resource; nothing for an engine
  /// that no kind claims.
  static std::optional<kiv::KindKeys> requiredKeysOfEngine(std::string_view engine);

  /// The resources of a configuration's "items", in their order, without those that are not
  /// acceptable. A value that is no configuration, null for example, has none.
  static std::vector<std::shared_ptr<KivResource>> resourcesArrayForResourcesConfig(
      const kiv::Value& config);
};
