#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "KivPlatform/Foundation/values/Result.h"

/// Rules for the paths of stored files under their root. These functions do not access the disk.
namespace kiv::storage {

/// The service's private directory under the root, for incomplete files.
inline constexpr std::string_view privateDirectory = ".KivStorageService";

/// ROOT/relativePath/fileName.
std::string storedPath(std::string_view root, std::string_view relativePath,
                       std::string_view fileName);

bool isArchiveName(std::string_view fileName);
/// The name of the directory that the archive is unpacked into.
std::string_view archiveStem(std::string_view fileName);

/// What is wrong with the relative path, as a predicate ("has the part ..."); nothing if it is
/// valid. It must consist of valid names with single separators, and must not be in the private
/// directory. The empty path is the root.
std::optional<std::string> validateRelativePath(std::string_view relativePath);

/// Fails with unusableName if the name or the directory is not valid.
Status checkPlace(std::string_view fileName, std::string_view relativePath);
/// The same for a file to be saved; the stem of an archive must be valid too.
Status checkSaving(std::string_view fileName, std::string_view relativePath);

}  // namespace kiv::storage
