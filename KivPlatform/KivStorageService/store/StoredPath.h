#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "KivPlatform/Foundation/values/Error.h"

/// Where a stored file lies under its root: checks on the text alone.
namespace kiv::storage {

/// The directory under its root where the service keeps what is not complete.
inline constexpr std::string_view privateDirectory = ".KivStorageService";

/// The ending that marks the name of an archive, in this spelling only.
inline constexpr std::string_view archiveSuffix = ".zip";

bool isArchiveName(std::string_view fileName);
/// The name of the directory that the archive is unpacked in.
std::string_view archiveStem(std::string_view fileName);

/// Why the directory may not be used, as an end of a sentence, or nothing where it may: it must be
/// made of harmless names with single separators between them, and lie outside the service's own
/// directory. The empty path is the root itself.
std::optional<std::string> validateRelativePath(std::string_view relativePath);

/// The error for a place that may not be used for a file, or nothing where it may.
std::optional<Error> validatePlace(std::string_view fileName, std::string_view relativePath);
/// The same for something that is to be saved there; an archive's stem counts too.
std::optional<Error> validateSaving(std::string_view fileName, std::string_view relativePath);

}  // namespace kiv::storage
