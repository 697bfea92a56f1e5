#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KivPlatform/Foundation/values/Result.h"

/// Removal, confined to certain directories by the guard.
///
/// The parent directory is opened once, following links. The guard checks where that open directory
/// lies, and the item is removed from it by name (unlinkat), so that renames by others meanwhile
/// cannot redirect the removal. Links below it are not followed.
namespace kiv::posix {

/// An item, as a name in a directory.
struct ItemPlace {
  std::string directory;
  std::string name;
};

/// The place of the item that the path names; nothing if it names none to remove: the file
/// system's root, or, with "." or ".." at its end, a directory by way of one in it.
std::optional<ItemPlace> placeOfItem(std::string_view path);

/// Renames the item to the new place, where it is to be removed. With roots, both directories must
/// lie in them or below. `path` serves the message.
Status withdrawItem(const ItemPlace& place, const ItemPlace& newPlace,
                    const std::optional<std::vector<std::string>>& roots, std::string_view path);

/// Removes the item, a directory with everything in it. With roots, one that lies neither in them
/// nor below is refused. `path` serves the message.
Status removeItem(const ItemPlace& place, const std::optional<std::vector<std::string>>& roots,
                  std::string_view path);

}  // namespace kiv::posix
