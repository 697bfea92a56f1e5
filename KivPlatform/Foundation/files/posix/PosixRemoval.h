#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KivPlatform/Foundation/values/Result.h"

/// Removals, checked by the removal guard.
///
/// The parent directory is opened once, following links. The guard checks the location of the open
/// directory, and the item is removed from it by name (unlinkat). So a concurrent rename cannot
/// redirect the removal. Links below the parent directory are not followed.
namespace kiv::posix {

/// An item, as a parent directory and a name in it.
struct ItemPlace {
  std::string directory;
  std::string name;
};

/// Splits the path into parent directory and name; nothing if the path is the root directory or
/// ends in "." or "..", which cannot be removed by name.
std::optional<ItemPlace> placeOfItem(std::string_view path);

/// Renames the item to the new place, where the caller removes it. If `roots` is set, both parent
/// directories must be roots or below one. `path` is for error messages.
Status withdrawItem(const ItemPlace& place, const ItemPlace& newPlace,
                    const std::optional<std::vector<std::string>>& roots, std::string_view path);

/// Removes the item, including everything in a directory. If `roots` is set, the parent directory
/// must be a root or below one. `path` is for error messages.
Status removeItem(const ItemPlace& place, const std::optional<std::vector<std::string>>& roots,
                  std::string_view path);

}  // namespace kiv::posix
