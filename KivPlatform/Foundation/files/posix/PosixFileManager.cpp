// The file manager for POSIX systems: Linux, macOS and the BSDs.
//
// Most queries use lstat, because they concern the item itself and not the target of a link. File
// contents are handled in PosixFile, permissions in PosixAccess, and guarded removals in
// PosixRemoval.

#include <array>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <utility>

#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/Foundation/files/SystemFileManager.h"
#include "KivPlatform/Foundation/files/posix/FileSystemSync.h"
#include "KivPlatform/Foundation/files/posix/ParallelSync.h"
#include "KivPlatform/Foundation/files/posix/PosixAccess.h"
#include "KivPlatform/Foundation/files/posix/PosixFile.h"
#include "KivPlatform/Foundation/files/posix/PosixRemoval.h"

namespace kiv {

namespace {

using posix::Descriptor;
using posix::SystemPath;

class PosixFileLock final : public FileLock {
 public:
  explicit PosixFileLock(Descriptor descriptor) : descriptor_(std::move(descriptor)) {}

 private:
  Descriptor descriptor_;  // closing it releases the lock
};

class PosixFileManager final : public FileManager {
 public:
  bool fileExistsAtPath(std::string_view path) override {
    struct stat status {};
    const SystemPath systemPath(path);
    return systemPath.isValid() && ::stat(systemPath.c_str(), &status) == 0 &&
           S_ISREG(status.st_mode);
  }

  bool itemExistsAtPath(std::string_view path) override {
    struct stat status {};
    return lookAt(path, status);
  }

  bool directoryExistsAtPath(std::string_view path) override {
    struct stat status {};
    return lookAt(path, status) && S_ISDIR(status.st_mode);
  }

  bool linkExistsAtPath(std::string_view path) override {
    struct stat status {};
    return lookAt(path, status) && S_ISLNK(status.st_mode);
  }

  Status fileIsReadableAtPath(std::string_view path) override;
  Result<std::string> resolvedPathOfItemAtPath(std::string_view path) override;
  Result<std::uint64_t> sizeOfItemAtPath(std::string_view path) override;
  Result<FileSystemSpace> spaceAtPath(std::string_view path) override;
  Result<Data> contentsAtPath(std::string_view path) override { return posix::readFile(path); }
  Result<std::unique_ptr<MappedFile>> mapFileAtPath(std::string_view path) override {
    return posix::mapFile(path);
  }
  std::optional<std::uint64_t> lengthOfFileAtPath(std::string_view path) override;
  Result<FileIdentity> identityOfFileAtPath(std::string_view path) override;
  Result<std::vector<std::string>> contentsOfDirectoryAtPath(std::string_view path) override;
  Result<std::vector<std::string>> filesOfDirectoryAtPath_mostEntries(
      std::string_view path, std::size_t mostEntries) override;
  Status createDirectoryAtPath(std::string_view path) override;
  Status createPrivateDirectoryAtPath(std::string_view path) override;
  Result<std::unique_ptr<WritableFile>> createFileAtPath(std::string_view path) override;
  Result<std::unique_ptr<WritableFile>> createPrivateFileAtPath(std::string_view path) override;
  void makePrivateItemAtPath(std::string_view path) override;
  Status copyAccessToFileAtPath_fromFileAtPath(std::string_view path,
                                               std::string_view otherPath) override;
  Result<std::unique_ptr<WritableFile>> openFileAtPath_length(std::string_view path,
                                                              std::uint64_t length) override;
  Status touchFileAtPath(std::string_view path) override;
  Status synchronizeDirectoryAtPath(std::string_view path) override;
  std::vector<Status> synchronizeFiles(const std::vector<WritableFile*>& files) override {
    return posix::synchronizeInParallel(files);
  }
  std::unique_ptr<BatchSync> beginBatchSyncAtPath(std::string_view path) override {
    return beginFileSystemSync(path);
  }
  Status moveItemAtPath_toPath(std::string_view path, std::string_view newPath) override;
  Status linkFileAtPath_toPath(std::string_view path, std::string_view newPath) override;
  Status exchangeItemAtPath_withItemAtPath(std::string_view path,
                                           std::string_view otherPath) override;
  Status withdrawItemAtPath_toPath(std::string_view path, std::string_view newPath) override;
  Status removeItemAtPath(std::string_view path) override;
  Result<std::unique_ptr<FileLock>> lockFileAtPath(std::string_view path) override;

 private:
  static bool lookAt(std::string_view path, struct stat& status);
};

std::string_view withoutSeparatorsAtEnd(std::string_view path) {
  return path.substr(0, path.find_last_not_of('/') + 1);
}

/// Looks up the item itself, not the target of a link. The system would follow a link whose path
/// ends in "/"; here a trailing "/" only means that the item must be a directory. False, with errno
/// set, on failure.
bool PosixFileManager::lookAt(std::string_view path, struct stat& status) {
  std::string_view item = withoutSeparatorsAtEnd(path);
  if (item.empty()) item = path.substr(0, 1);
  const SystemPath systemPath(item);
  if (!systemPath.isValid()) {
    errno = EINVAL;
    return false;
  }
  if (::lstat(systemPath.c_str(), &status) != 0) return false;
  if (item.size() == path.size() || S_ISDIR(status.st_mode)) return true;
  errno = ENOTDIR;
  return false;
}

// --- Queries -------------------------------------------------------------------------------------

Status PosixFileManager::fileIsReadableAtPath(std::string_view path) {
  struct stat status {};
  const auto file = posix::openRegularFile(path, status);
  if (!file) return file.error();
  char byte = 0;
  ssize_t count = 0;
  do {
    count = ::read(file->number(), &byte, 1);
  } while (count < 0 && errno == EINTR);
  if (count < 0) return systemError(errno, "read", path);
  return {};
}

Result<std::string> PosixFileManager::resolvedPathOfItemAtPath(std::string_view path) {
  const SystemPath systemPath(path);
  if (!systemPath.isValid()) return systemError(EINVAL, "resolve", path);
  char* const resolved = ::realpath(systemPath.c_str(), nullptr);
  if (!resolved) return systemError(errno, "resolve", path);
  std::string result(resolved);
  std::free(resolved);
  return result;
}

std::optional<std::uint64_t> PosixFileManager::lengthOfFileAtPath(std::string_view path) {
  struct stat status {};
  if (!lookAt(path, status) || !S_ISREG(status.st_mode)) return std::nullopt;
  return static_cast<std::uint64_t>(status.st_size);
}

const struct timespec& modified(const struct stat& status) {
#if defined(__APPLE__)
  return status.st_mtimespec;
#else
  return status.st_mtim;
#endif
}

const struct timespec& changed(const struct stat& status) {
#if defined(__APPLE__)
  return status.st_ctimespec;
#else
  return status.st_ctim;
#endif
}

std::int64_t nanoseconds(const struct timespec& time) {
  return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

Result<FileIdentity> PosixFileManager::identityOfFileAtPath(std::string_view path) {
  struct stat status {};
  const SystemPath systemPath(path);
  if (!systemPath.isValid()) return systemError(EINVAL, "look at", path);
  if (::stat(systemPath.c_str(), &status) != 0) return systemError(errno, "look at", path);
  return FileIdentity{static_cast<std::uint64_t>(status.st_dev),
                      static_cast<std::uint64_t>(status.st_ino),
                      static_cast<std::uint64_t>(status.st_size), nanoseconds(modified(status)),
                      nanoseconds(changed(status))};
}

Result<std::vector<std::string>> PosixFileManager::contentsOfDirectoryAtPath(
    std::string_view path) {
  Descriptor directory = posix::open(path, O_RDONLY | O_DIRECTORY);
  if (!directory.isOpen()) return systemError(errno, "list", path);
  auto names = posix::namesInDirectory(std::move(directory));
  if (!names) return systemError(errno, "list", path);
  return *std::move(names);
}

Result<std::vector<std::string>> PosixFileManager::filesOfDirectoryAtPath_mostEntries(
    std::string_view path, std::size_t mostEntries) {
  Descriptor directory = posix::open(path, O_RDONLY | O_DIRECTORY);
  if (!directory.isOpen()) return systemError(errno, "list", path);
  auto names = posix::regularFilesInDirectory(std::move(directory), mostEntries);
  if (!names) return systemError(errno, "list", path);
  return *std::move(names);
}

// --- Space ---------------------------------------------------------------------------------------

std::uint64_t ownSize(const struct stat& status) {
  constexpr std::uint64_t bytesOfBlock = 512;  // the unit of st_blocks on every file system
  return static_cast<std::uint64_t>(status.st_blocks) * bytesOfBlock;
}

/// The bytes that the item occupies on the disk, including everything in a directory; nothing, with
/// errno set, on failure.
std::optional<std::uint64_t> sizeOnDisk(const std::string& path, const struct stat& status) {
  if (!S_ISDIR(status.st_mode)) return ownSize(status);
  Descriptor directory = posix::open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
  if (!directory.isOpen()) return std::nullopt;
  const auto names = posix::namesInDirectory(std::move(directory));
  if (!names) return std::nullopt;
  std::uint64_t size = ownSize(status);
  for (const std::string& name : *names) {
    const std::string item = path::appendingPathComponent(path, name);
    struct stat itemStatus {};
    if (::lstat(item.c_str(), &itemStatus) != 0) {
      if (errno == ENOENT) continue;  // removed since the directory was listed
      return std::nullopt;
    }
    const auto itemSize = sizeOnDisk(item, itemStatus);
    if (!itemSize) return std::nullopt;
    size += *itemSize;
  }
  return size;
}

Result<std::uint64_t> PosixFileManager::sizeOfItemAtPath(std::string_view path) {
  struct stat status {};
  std::optional<std::uint64_t> size;
  if (lookAt(path, status)) size = sizeOnDisk(std::string(path), status);
  if (!size) return systemError(errno, "measure", path);
  return *size;
}

/// Queries the path or its deepest existing ancestor.
Result<FileSystemSpace> PosixFileManager::spaceAtPath(std::string_view path) {
  constexpr std::string_view what = "measure the space at";
  if (!SystemPath(path).isValid()) return systemError(EINVAL, what, path);
  struct statvfs status {};
  std::string_view asked = path;
  while (::statvfs(std::string(asked).c_str(), &status) != 0) {
    const int number = errno;
    const std::string_view above = path::deletingLastPathComponent(asked);
    if (number != ENOENT || above.size() >= asked.size() || above.empty()) {
      return systemError(number, what, path);
    }
    asked = above;
  }
  // Some file systems do not report block counts.
  if (status.f_blocks == 0) return systemError(ENOTSUP, what, path);
  const std::uint64_t block = status.f_frsize;
  return FileSystemSpace{(status.f_blocks - status.f_bfree) * block, status.f_bavail * block};
}

// --- Changes -------------------------------------------------------------------------------------

Status PosixFileManager::createDirectoryAtPath(std::string_view path) {
  const bool isValid = SystemPath(path).isValid();
  const int number = isValid ? posix::makeDirectories(std::string(path)) : EINVAL;
  if (number != 0) return systemError(number, "create", path);
  return {};
}

Status PosixFileManager::createPrivateDirectoryAtPath(std::string_view path) {
  const bool isValid = SystemPath(path).isValid();
  const int number = isValid ? posix::makePrivateDirectory(std::string(path)) : EINVAL;
  if (number != 0) return systemError(number, "create", path);
  return {};
}

Result<std::unique_ptr<WritableFile>> PosixFileManager::createFileAtPath(std::string_view path) {
  Descriptor file = posix::open(path, O_WRONLY | O_CREAT | O_EXCL);
  if (!file.isOpen()) return systemError(errno, "create", path);
  return posix::writableFile(std::move(file), path);
}

Result<std::unique_ptr<WritableFile>> PosixFileManager::createPrivateFileAtPath(
    std::string_view path) {
  Descriptor file = posix::open(path, O_WRONLY | O_CREAT | O_EXCL, posix::privateFileMode);
  if (!file.isOpen()) return systemError(errno, "create", path);
  posix::makePrivate(file.number());
  return posix::writableFile(std::move(file), path);
}

void PosixFileManager::makePrivateItemAtPath(std::string_view path) {
  if (SystemPath(path).isValid()) posix::makePrivate(std::string(path));
}

Status PosixFileManager::copyAccessToFileAtPath_fromFileAtPath(std::string_view path,
                                                               std::string_view otherPath) {
  struct stat status {};
  if (!lookAt(otherPath, status)) return systemError(errno, "look at", otherPath);
  const Descriptor file = posix::open(path, O_WRONLY | O_NOFOLLOW | O_NONBLOCK);
  if (file.isOpen() && ::fchmod(file.number(), status.st_mode & 0777) == 0) return {};
  return systemError(errno, "share", path);
}

Result<std::unique_ptr<WritableFile>> PosixFileManager::openFileAtPath_length(
    std::string_view path, std::uint64_t length) {
  struct stat status {};
  Descriptor file = posix::open(path, O_WRONLY | O_APPEND | O_NOFOLLOW | O_NONBLOCK);
  if (!file.isOpen() || ::fstat(file.number(), &status) != 0) {
    return systemError(errno, "open", path);
  }
  if (!S_ISREG(status.st_mode)) return systemError(EINVAL, "open", path);
  const auto wanted = static_cast<off_t>(length);
  if (status.st_size > wanted && ::ftruncate(file.number(), wanted) != 0) {
    return systemError(errno, "open", path);
  }
  return posix::writableFile(std::move(file), path);
}

Status PosixFileManager::touchFileAtPath(std::string_view path) {
  struct stat status {};
  if (!lookAt(path, status)) return systemError(errno, "touch", path);
  if (!S_ISREG(status.st_mode)) return systemError(EINVAL, "touch", path);
  const std::array<timespec, 2> times{timespec{0, UTIME_OMIT},
                                      {std::time(nullptr), modified(status).tv_nsec}};
  const SystemPath systemPath(path);
  if (::utimensat(AT_FDCWD, systemPath.c_str(), times.data(), AT_SYMLINK_NOFOLLOW) != 0) {
    return systemError(errno, "touch", path);
  }
  return {};
}

Status PosixFileManager::synchronizeDirectoryAtPath(std::string_view path) {
  const Descriptor directory = posix::open(path, O_RDONLY | O_DIRECTORY);
  if (directory.isOpen() && posix::synchronize(directory.number()) == 0) return {};
  return systemError(errno, "synchronize", path);
}

Status PosixFileManager::moveItemAtPath_toPath(std::string_view path, std::string_view newPath) {
  const SystemPath from(path);
  const SystemPath to(newPath);
  if (!from.isValid() || !to.isValid()) return systemError(EINVAL, "rename", path);
  if (::rename(from.c_str(), to.c_str()) != 0) return systemError(errno, "rename", path);
  return {};
}

Status PosixFileManager::linkFileAtPath_toPath(std::string_view path, std::string_view newPath) {
  const SystemPath from(path);
  const SystemPath to(newPath);
  if (!from.isValid() || !to.isValid()) return systemError(EINVAL, "link", path);
  struct stat status {};
  if (!lookAt(path, status)) return systemError(errno, "link", path);
  if (!S_ISREG(status.st_mode)) return systemError(EINVAL, "link", path);
  if (::linkat(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), 0) != 0) {
    return systemError(errno, "link", path);
  }
  return {};
}

Status PosixFileManager::exchangeItemAtPath_withItemAtPath(std::string_view path,
                                                           std::string_view otherPath) {
  const SystemPath one(path);
  const SystemPath other(otherPath);
  if (!one.isValid() || !other.isValid()) return systemError(EINVAL, "exchange", path);
#if defined(RENAME_EXCHANGE)
  const int result = ::renameat2(AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE);
#elif defined(RENAME_SWAP)
  const int result = ::renamex_np(one.c_str(), other.c_str(), RENAME_SWAP);
#else
  const int result = -1;
  errno = ENOTSUP;
#endif
  if (result != 0) return systemError(errno, "exchange", path);
  return {};
}

Status PosixFileManager::withdrawItemAtPath_toPath(std::string_view path,
                                                   std::string_view newPath) {
  struct stat status {};
  if (!lookAt(path, status)) return systemError(errno, "withdraw", path);
  const auto place = posix::placeOfItem(path);
  const auto newPlace = SystemPath(newPath).isValid() ? posix::placeOfItem(newPath) : std::nullopt;
  if (!place || !newPlace) return systemError(EINVAL, "withdraw", path);
  return posix::withdrawItem(*place, *newPlace, removalRoots(), path);
}

Status PosixFileManager::removeItemAtPath(std::string_view path) {
  struct stat status {};
  if (!lookAt(path, status)) return systemError(errno, "remove", path);
  const auto place = posix::placeOfItem(path);
  if (!place) return systemError(EINVAL, "remove", path);
  return posix::removeItem(*place, removalRoots(), path);
}

// --- Locks ---------------------------------------------------------------------------------------

/// Zero if the open file is still the one at the path, ENOENT if not, otherwise errno. The previous
/// holder of the lock may have removed the file after we opened it and before we locked it.
int lookForFile(const Descriptor& file, std::string_view path) {
  struct stat opened {};
  struct stat named {};
  if (::fstat(file.number(), &opened) != 0 || ::lstat(SystemPath(path).c_str(), &named) != 0) {
    return errno;
  }
  return opened.st_dev == named.st_dev && opened.st_ino == named.st_ino ? 0 : ENOENT;
}

Result<std::unique_ptr<FileLock>> PosixFileManager::lockFileAtPath(std::string_view path) {
  constexpr int mostAttempts = 100;
  int number = ENOENT;
  for (int attempt = 0; attempt < mostAttempts && number == ENOENT; ++attempt) {
    Descriptor file = posix::open(path, O_RDWR | O_CREAT | O_NOFOLLOW, posix::privateFileMode);
    if (!file.isOpen() || ::flock(file.number(), LOCK_EX | LOCK_NB) != 0) {
      return systemError(errno, "lock", path);
    }
    number = lookForFile(file, path);
    posix::makePrivate(file.number());
    if (number == 0) return std::make_unique<PosixFileLock>(std::move(file));
  }
  return systemError(number, "lock", path);
}

}  // namespace

FileManager& systemFileManager() {
  static auto& manager = *new PosixFileManager;
  return manager;
}

}  // namespace kiv
