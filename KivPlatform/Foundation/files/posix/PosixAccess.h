#pragma once

#include <string>
#include <sys/stat.h>

/// File modes and permissions.
namespace kiv::posix {

/// Modes of new shared items, before the umask: never writable by others.
inline constexpr mode_t sharedFileMode = 0664;
inline constexpr mode_t sharedDirectoryMode = 0775;
/// Modes of private items, regardless of the umask.
inline constexpr mode_t privateFileMode = 0600;
inline constexpr mode_t privateDirectoryMode = 0700;

/// Creates the directory with missing parents. Returns zero, even if it or a link to it exists, or
/// errno.
int makeDirectories(const std::string& path);
/// The same with mode 0700 for the directory itself. An existing directory loses the permissions of
/// group and others if the process's user owns it.
int makePrivateDirectory(const std::string& path);

/// Removes the permissions of group and others from a regular file, or from a directory without the
/// sticky bit, if the process's user owns it. Failures are ignored.
void makePrivate(const std::string& path);
/// Sets the open file to mode 0600 if the process's user owns it. Failures are ignored.
void makePrivate(int descriptor);

}  // namespace kiv::posix
