#pragma once

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/values/Value.h"
#include "KivResource/KivResourceObject.h"

/// Creates resources from resource dictionaries. The string under "engine" chooses the class, and
/// the class decides whether the dictionary is valid.
///
/// Stateless; its operations may be called from any thread.
class KIV_EXPORT KivResourceFactory {
 public:
  KivResourceFactory() = delete;

  /// Creates a resource of the dictionary. If the dictionary has no engine or is not valid, returns
  /// nullptr and writes one line to the system log. An unknown engine makes a plain KivResource.
  static std::shared_ptr<KivResource> createResourceFromDictionary(
      const kiv::Dictionary& dictionary);

  /// The keys that the engine's kind requires beyond the common ones; nothing for an unknown
  /// engine.
  static std::optional<kiv::KindKeys> requiredKeysOfEngine(std::string_view engine);

  /// The resources of the configuration's "items", in their order, without the invalid ones. A
  /// value that is no configuration, such as null, has none.
  static std::vector<std::shared_ptr<KivResource>> resourcesArrayForResourcesConfig(
      const kiv::Value& config);
};
