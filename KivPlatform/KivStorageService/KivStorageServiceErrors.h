#pragma once

#include <string_view>

/// Domain of the errors that the storage service makes itself; those of the operating system pass
/// through with their own.
inline constexpr std::string_view KivStorageServiceErrorDomain = "kiv.KivStorageService";

enum class KivStorageServiceErrorCode : int {
  unusableName = 1,    ///< The file name, or an archive's stem, may not be used for a file.
  invalidArchive = 2,  ///< The archive cannot be read, or holds what it may not hold.
  noEntryPage = 3,     ///< The archive leaves no "index.html" at its top.
  nameIsTaken = 4,     ///< Something of another sort, a directory or a file, has the name.
  noRoot = 5,          ///< There is no directory to store in.
  outOfResources = 6,  ///< Memory, or something else that the program runs on, gave out.
  noSpace = 7,         ///< The disk has no room for the file, or for what the archive holds.
};
