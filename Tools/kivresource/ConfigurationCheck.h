#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "KivResource/KivResource.h"

namespace tool {

/// What a configuration asks for, and what is wrong or odd about its items, for the person who
/// wrote it. Made of the configuration alone, before the pass.
struct ConfigurationCheck {
  /// Something about one item.
  struct Note {
    std::size_t place;  ///< Of the item, counted from 1.
    std::string text;
  };

  /// The identifiers of the resources that the selection leaves, in the order of the items.
  std::vector<std::string> resourceIDs;
  /// Why items make no resource, whatever the selection: the first key that is missing, or that
  /// holds something else.
  std::vector<Note> unacceptable;
  /// What the person may not have meant about items that do.
  std::vector<Note> odd;

  /// Without an identifier and a type, everything is selected.
  static ConfigurationCheck of(const kiv::Value& config, const std::optional<std::string>& id,
                               const std::optional<std::string>& type);
};

}  // namespace tool
