#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>

#include "KivPlatform/Foundation/files/FileManager.h"

/// What things take on the disk of a POSIX system, and what is left there.
namespace kiv::posix {

/// The bytes that the item takes, whose state the caller has looked up, a directory with everything
/// in it; nothing, with the system's error number, on failure.
std::optional<std::uint64_t> sizeOnDisk(const std::string& path, const struct stat& status);

/// The space of the file system that holds the path, or the lowest directory above it that stands;
/// nothing, with the system's error number, where it is not known.
std::optional<FileSystemSpace> spaceOfFileSystem(std::string_view path);

}  // namespace kiv::posix
