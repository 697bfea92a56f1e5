// The umask cannot be read without changing it for the whole process. So shared items get a mode
// that the kernel masks, and private items are set to their exact mode after creation. Permissions
// are a precaution, so failing to tighten them is not an error.

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

/// Does not follow a link, which another process may have created meanwhile.
void setMode(const std::string& path, mode_t mode) {
  [[maybe_unused]] const int result = ::fchmodat(AT_FDCWD, path.c_str(), mode, AT_SYMLINK_NOFOLLOW);
}

/// Zero if the path is a directory or a link to one, otherwise errno.
int lookForDirectory(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return errno;
  return S_ISDIR(status.st_mode) ? 0 : ENOTDIR;
}

/// Creates one directory, and its parents only if mkdir reports them missing. Zero, or errno.
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
    setMode(directory, privateDirectoryMode);  // an unusual umask removes bits of the owner too
    return 0;
  }
  const int standing = makeDirectories(directory);
  if (standing == 0) makePrivate(directory);
  return standing;
}

void makePrivate(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0 || !isOurs(status)) return;
  // A sticky directory, such as /tmp, is meant to be shared.
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
