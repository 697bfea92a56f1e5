#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/values/Error.h"
#include "KivPlatform/Foundation/values/Value.h"
#include "KivResource/KivResourceObject.h"

inline constexpr std::string_view KivResourceFactoryErrorDomain =
    "kiv.KivResource.KivResourceFactory";

enum class KivResourceFactoryErrorCode : int {
  engineNotFree = 130,    ///< It is empty, the framework's, or registered already.
  exampleNotValid = 131,  ///< No resource is made of the example.
  notCopyable = 132,      ///< A copy is not of the same class, or there is none.
};

/// Creates resources from resource dictionaries. The string under "engine" chooses the class, and
/// the class decides whether the dictionary is valid.
///
/// Its operations may be called from any thread.
class KIV_EXPORT KivResourceFactory {
 public:
  KivResourceFactory() = delete;

  /// Creates a resource of the dictionary. If the dictionary has no engine or is not valid, returns
  /// nullptr and writes one line to the system log. An unknown engine makes a plain KivResource.
  static std::shared_ptr<KivResource> createResourceFromDictionary(
      const kiv::Dictionary& dictionary);

  /// Makes a resource of a dictionary with a registered engine, or returns nullptr if it is not
  /// valid. Called on the threads that use the factory, on several at once. Must not throw.
  using Maker = std::function<std::shared_ptr<KivResource>(const kiv::Dictionary& dictionary,
                                                           const std::string& engine)>;
  /// Registers a kind of the host's: items and entries of the saved list with that engine make its
  /// resources from now on. To be called before the manager is created, which restores the list.
  ///
  /// `example` holds what a valid item has beyond the common keys, for instance {{"code", "AB"},
  /// {"leaflet", "leaflets/ab.pdf"}}. A resource is made of it, and copied, since queries return
  /// copies. requiredKeysOfEngine() returns its strings.
  ///
  /// False with an error of KivResourceFactoryErrorDomain if the engine is not free, if the example
  /// makes no resource, or if the kind cannot be copied. Then nothing is registered.
  static bool registerKind(std::string_view engine, Maker maker,
                           const kiv::Dictionary& example = {},
                           std::optional<kiv::Error>* error = nullptr);
  /// Removes a kind of the host's; its engine is unknown from now on. Resources that exist stay.
  /// False if the engine is not registered.
  static bool unregisterKind(std::string_view engine);

  /// The keys that the engine's kind requires beyond the common ones; nothing for an unknown
  /// engine.
  static std::optional<kiv::KindKeys> requiredKeysOfEngine(std::string_view engine);

  /// Why the item of a configuration makes no resource: the first key that is missing or has an
  /// invalid value, in words such as `lacks "name", a string`. Nothing if its keys are right; the
  /// maker of a host's kind may still refuse it.
  static std::optional<std::string> validateItem(const kiv::Value& item);

  /// The resource of each of the configuration's "items", in their order; nullptr for an invalid
  /// one. A value that is no configuration, such as null, has none.
  static std::vector<std::shared_ptr<KivResource>> resourceOfEachItemOfConfig(
      const kiv::Value& config);

  /// The resources of the configuration's "items", in their order, without the invalid ones. A
  /// value that is no configuration, such as null, has none.
  static std::vector<std::shared_ptr<KivResource>> resourcesArrayForResourcesConfig(
      const kiv::Value& config);
};
