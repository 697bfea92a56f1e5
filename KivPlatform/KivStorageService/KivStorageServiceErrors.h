#pragma once

#include <string_view>

/// Domain of the storage service's own errors. Errors of the operating system keep their domain,
/// kiv::SystemErrorDomain.
inline constexpr std::string_view KivStorageServiceErrorDomain = "kiv.KivStorageService";

enum class KivStorageServiceErrorCode : int {
  unusableName = 1,    ///< The file name, its directory or an archive's stem is not valid.
  invalidArchive = 2,  ///< The archive is malformed, exceeds a limit or has a forbidden entry.
  noEntryPage = 3,     ///< The archive has no "index.html" at its top level.
  nameIsTaken = 4,     ///< A directory exists under the name of a file, or vice versa.
  noRoot = 5,          ///< There is no storage root.
  outOfResources = 6,  ///< Out of memory, or a library threw an exception.
  noSpace = 7,         ///< The disk has no room for the file or the unpacked archive.
};
