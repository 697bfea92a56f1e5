#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KivPlatform/Foundation/Export.h"

/// Decides which local paths in configurations and saved lists are accepted as files.
///
/// By default all: an item that names a regular file on this computer counts as loaded and is not
/// downloaded. A host that does not trust the author of its configurations should call
///
///     KivResourceLookup::setRoots(std::vector<std::string>());
///
/// before it creates the manager. Otherwise that author can learn from the requests which files
/// exist on the user's computer.
///
/// A path that begins with two separators names another computer on Windows, which would be sent
/// the user's credentials. It is accepted nowhere, except below the host's own directories.
///
/// A cache beside that of the process has roots of its own (KivResourceCacheOptions::lookupRoots),
/// which hold for its manager's operations. In other calls, as of a copy's filesExist(), the files
/// of every open cache are accepted, too.
///
/// Stateless; may be called from any thread.
class KIV_EXPORT KivResourceLookup {
 public:
  KivResourceLookup() = delete;

  /// Accepts only files in the resources directory under the storage root, in the packaged bundle,
  /// in leases and in these directories; std::nullopt removes the restriction. The path of any
  /// other file is treated as a link. Symbolic links are resolved first. A root that is not
  /// absolute, or not a directory, is ignored. Takes effect with the next look-up; loaded resources
  /// stay loaded.
  static void setRoots(std::optional<std::vector<std::string>> roots);
  /// The directories that the host has set; nothing if there is no restriction.
  static std::optional<std::vector<std::string>> roots();

  /// True if a regular file exists at the path and is accepted.
  static bool fileExistsAtPath(std::string_view path);
};
