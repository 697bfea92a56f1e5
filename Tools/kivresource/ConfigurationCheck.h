#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "KivResource/KivResource.h"

namespace tool {

/// The resources that a configuration requests, and errors and warnings about its items for its
/// author. Depends only on the configuration, not on the pass.
struct ConfigurationCheck {
  /// A message about one item.
  struct Note {
    std::size_t place;  ///< The position of the item, counted from 1.
    std::string text;
  };

  /// The identifiers of the selected resources, in the order of the items.
  std::vector<std::string> resourceIDs;
  /// Why items are rejected, whether or not they are selected: the first key that is missing or has
  /// an invalid value.
  std::vector<Note> unacceptable;
  /// Warnings about accepted items.
  std::vector<Note> odd;

  /// Selects everything if neither identifier nor type is given.
  static ConfigurationCheck of(const kiv::Value& config, const std::optional<std::string>& id,
                               const std::optional<std::string>& type);
};

}  // namespace tool
