#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KivPlatform/Foundation/Export.h"

/// Where the kinds look for a file when an item of a configuration, or of the saved list, names a
/// path in place of a link.
///
/// By default everywhere: an item that names a regular file of this machine counts as loaded, and
/// its link is not fetched. A host whose configurations come from a server that it does not trust
/// calls
///
///     KivResourceLookup::setRoots(std::vector<std::string>());
///
/// before it makes the manager. Otherwise the author of a configuration learns, from what is
/// fetched and what is not, which files lie on the user's machine.
///
/// Never instantiated. May be called from any thread.
class KIV_EXPORT KivResourceLookup {
 public:
  KivResourceLookup() = delete;

  /// Confines the search to the resources directory under the storage root, the packaged bundle and
  /// these directories; std::nullopt removes the bound. A file elsewhere counts as absent, so its
  /// path is taken for a link. Symbolic links are resolved first, so that none leads out of these
  /// directories. A root that is not absolute, or at which there is no directory, adds nothing.
  /// Takes effect with the next search: resources that are loaded already stay loaded.
  static void setRoots(std::optional<std::vector<std::string>> roots);
  /// The directories that the host has added; nothing if no bound is set.
  static std::optional<std::vector<std::string>> roots();

  /// True if a regular file lies at the path, within the bound if one is set.
  static bool fileExistsAtPath(std::string_view path);
};
