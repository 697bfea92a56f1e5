#pragma once

#include <string>
#include <sys/stat.h>

/// Modes of files and directories.
namespace kiv::posix {

/// Modes of new shared items, before the umask: never writable by others.
inline constexpr mode_t sharedFileMode = 0664;
inline constexpr mode_t sharedDirectoryMode = 0775;
/// Modes of private items, whatever the umask.
inline constexpr mode_t privateFileMode = 0600;
inline constexpr mode_t privateDirectoryMode = 0700;

/// Creates the directory with missing parents. Zero, also if it or a link to one exists, or errno.
int makeDirectories(const std::string& path);
/// The same with mode 0700 for the directory, also if it existed and this process runs as its
/// owner.
int makePrivateDirectory(const std::string& path);

/// Takes the rights of everybody but its owner from the item, a regular file or a directory without
/// the sticky bit, where this process runs as its owner and may.
void makePrivate(const std::string& path);
/// Gives the open file exactly the mode for its owner alone, where this process runs as its owner
/// and may.
void makePrivate(int descriptor);

}  // namespace kiv::posix
