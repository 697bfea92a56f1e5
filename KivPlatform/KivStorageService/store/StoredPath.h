#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "KivPlatform/Foundation/values/Result.h"

/// Paths of stored files under their root. These functions do not access the disk.
namespace kiv::storage {

/// The service's private directory under its root, for incomplete files.
inline constexpr std::string_view privateDirectory = ".KivStorageService";

bool isArchiveName(std::string_view fileName);
/// The name of the directory that the archive is unpacked in.
std::string_view archiveStem(std::string_view fileName);

/// Why the directory may not be used, as the end of a sentence, or nothing. It must consist of
/// valid names with single separators, outside the private directory. The empty path is the root.
std::optional<std::string> validateRelativePath(std::string_view relativePath);

/// Fails if the path may not be used for a file.
Status checkPlace(std::string_view fileName, std::string_view relativePath);
/// The same for a file to be saved; an archive's stem is checked too.
Status checkSaving(std::string_view fileName, std::string_view relativePath);

}  // namespace kiv::storage
