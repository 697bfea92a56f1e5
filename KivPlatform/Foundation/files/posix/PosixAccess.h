#pragma once

#include <string>
#include <sys/stat.h>

/// Who may use files and directories on POSIX systems.
namespace kiv::posix {

/// What a new item is to allow, before the umask takes from it. Never that others write.
inline constexpr mode_t sharedFileMode = 0664;
inline constexpr mode_t sharedDirectoryMode = 0775;
/// What an item for its owner alone allows, whatever the umask.
inline constexpr mode_t privateFileMode = 0600;
inline constexpr mode_t privateDirectoryMode = 0700;

/// Makes the directory and the missing ones above it; zero, or the system's error number. Zero also
/// where it stood already, or a link to one.
int makeDirectories(const std::string& path);
/// The same with the directory for its owner alone, also where it stood already and this process
/// runs as its owner.
int makePrivateDirectory(const std::string& path);

/// Takes the rights of everybody but its owner from the item, a regular file or a directory without
/// the sticky bit, where this process runs as its owner and may.
void makePrivate(const std::string& path);
/// Gives the open file exactly the mode for its owner alone, where this process runs as its owner
/// and may.
void makePrivate(int descriptor);

}  // namespace kiv::posix
