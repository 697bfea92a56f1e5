#pragma once

#include <optional>
#include <string>
#include <utility>

#include "KivPlatform/Foundation/values/Value.h"

/// What a pass is to do, for KivResourceManager::startPass(). Each function below makes the pass of
/// the manager's operation that it names.
struct KivResourcePass {
  kiv::Value config;
  /// Only the resources with that identifier; nothing means all.
  std::optional<std::string> resourceID = {};
  /// Only the resources of that type; nothing means all. With an identifier, both apply.
  std::optional<std::string> type = {};
  /// At the end, loaded resources that the selected ones do not name leave the registry.
  bool dropsRest = false;

  /// loadResourcesForConfig()
  static KivResourcePass load(kiv::Value config) {
    return {std::move(config), std::nullopt, std::nullopt, false};
  }
  /// loadResourceWithID_forConfig()
  static KivResourcePass loadID(std::string resourceID, kiv::Value config) {
    return {std::move(config), std::move(resourceID), std::nullopt, false};
  }
  /// loadResourcesWithType_forConfig()
  static KivResourcePass loadType(std::string type, kiv::Value config) {
    return {std::move(config), std::nullopt, std::move(type), false};
  }
  /// updateResourcesForConfig()
  static KivResourcePass update(kiv::Value config) {
    return {std::move(config), std::nullopt, std::nullopt, true};
  }
};
