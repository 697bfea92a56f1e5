#include "KivPlatform/Foundation/files/posix/PosixAccess.h"

#include <cerrno>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

#include "KivPlatform/Foundation/files/Path.h"

namespace kiv::posix {

namespace {

constexpr mode_t modeBits = 07777;
constexpr mode_t ownersBits = 0700;
constexpr mode_t strangersBits = 0077;

bool isOurs(const struct stat& status) {
  return status.st_uid == ::geteuid();
}

/// Not through a link, which somebody may have put there meanwhile.
void setMode(const std::string& path, mode_t mode) {
  [[maybe_unused]] const int result = ::fchmodat(AT_FDCWD, path.c_str(), mode, AT_SYMLINK_NOFOLLOW);
}

/// Zero where a directory, or a link to one, lies at the path.
int lookForDirectory(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return errno;
  return S_ISDIR(status.st_mode) ? 0 : ENOTDIR;
}

/// Makes one directory, and those above it only if they are missing.
int makeDirectory(const std::string& path, mode_t mode) {
  if (::mkdir(path.c_str(), mode) == 0) return 0;
  if (errno != ENOENT) return errno;
  const std::string parent(path::deletingLastPathComponent(path));
  if (parent.empty() || parent == path) return ENOENT;
  const int number = makeDirectories(parent);
  if (number != 0) return number;
  return ::mkdir(path.c_str(), mode) == 0 ? 0 : errno;
}

std::string withoutSeparatorsAtEnd(const std::string& path) {
  const auto last = path.find_last_not_of('/');
  return path.substr(0, last == path.npos ? 1 : last + 1);
}

}  // namespace

int makeDirectories(const std::string& path) {
  const std::string directory = withoutSeparatorsAtEnd(path);
  const int number = makeDirectory(directory, sharedDirectoryMode);
  if (number == 0) return 0;
  const int standing = lookForDirectory(directory);
  return standing == 0 || number == EEXIST ? standing : number;
}

int makePrivateDirectory(const std::string& path) {
  const std::string directory = withoutSeparatorsAtEnd(path);
  const int number = makeDirectory(directory, privateDirectoryMode);
  if (number == 0) {
    setMode(directory, privateDirectoryMode);  // an odd umask has taken from the owner as well
    return 0;
  }
  const int standing = makeDirectories(directory);
  if (standing == 0) makePrivate(directory);
  return standing;
}

void makePrivate(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0 || !isOurs(status)) return;
  // A sticky directory is one for everybody, such as that for temporary files.
  const bool isForAll = S_ISDIR(status.st_mode) && (status.st_mode & S_ISVTX) != 0;
  const bool isToBe = (S_ISREG(status.st_mode) || S_ISDIR(status.st_mode)) && !isForAll;
  if (isToBe && (status.st_mode & strangersBits) != 0) setMode(path, status.st_mode & ownersBits);
}

void makePrivate(int descriptor) {
  struct stat status {};
  if (::fstat(descriptor, &status) != 0 || !isOurs(status)) return;
  if ((status.st_mode & modeBits) == privateFileMode) return;
  static_cast<void>(::fchmod(descriptor, privateFileMode));
}

}  // namespace kiv::posix
