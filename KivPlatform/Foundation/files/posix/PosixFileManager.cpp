// The file manager on POSIX systems: Linux, macOS and the BSDs.

#include <cerrno>
#include <cstdlib>
#include <exception>
#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "KivPlatform/Foundation/files/SystemFileManager.h"
#include "KivPlatform/Foundation/files/posix/FileSystemSync.h"
#include "KivPlatform/Foundation/files/posix/PosixAccess.h"
#include "KivPlatform/Foundation/files/posix/PosixDescriptor.h"
#include "KivPlatform/Foundation/files/posix/PosixRemoval.h"
#include "KivPlatform/Foundation/files/posix/PosixSpace.h"

namespace kiv {

namespace {

using posix::Descriptor;
using posix::namesInDirectory;
using posix::placeOfItem;
using posix::removeItem;

/// A path for the system's calls, which end a string at its first NUL: a path that holds one
/// names nothing.
class SystemPath {
 public:
  explicit SystemPath(std::string_view path) : path_(path) {}
  [[nodiscard]] bool isValid() const { return path_.find('\0') == std::string::npos; }
  [[nodiscard]] const char* c_str() const noexcept { return path_.c_str(); }

 private:
  std::string path_;
};

bool failWith(int number, std::string_view what, std::string_view path,
              std::optional<Error>* error) {
  return fail(error, systemError(number, what, path));
}

Descriptor open(std::string_view path, int flags, mode_t mode = posix::sharedFileMode) {
  const SystemPath systemPath(path);
  if (!systemPath.isValid()) {
    errno = EINVAL;
    return Descriptor(-1);
  }
  int number = -1;
  do {
    number = ::open(systemPath.c_str(), flags | O_CLOEXEC, mode);
  } while (number < 0 && errno == EINTR);
  return Descriptor(number);
}

/// Waits until the file's contents, or a directory's entries, have reached the disk itself. On
/// macOS an fsync stops at the drive's cache, and F_FULLFSYNC goes on from there.
int synchronizeDescriptor(int number) {
#if defined(__APPLE__)
  if (::fcntl(number, F_FULLFSYNC) == 0) return 0;
#endif
  return ::fsync(number);
}

class PosixWritableFile final : public WritableFile {
 public:
  PosixWritableFile(Descriptor descriptor, std::string path)
      : descriptor_(std::move(descriptor)), path_(std::move(path)) {}

  bool write(std::string_view bytes, std::optional<Error>* error) override {
    while (!bytes.empty()) {
      const ssize_t written = ::write(descriptor_.number(), bytes.data(), bytes.size());
      if (written < 0 && errno == EINTR) continue;
      if (written < 0) return failWith(errno, "write", path_, error);
      bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
  }

  bool synchronize(std::optional<Error>* error) override {
    return synchronizeDescriptor(descriptor_.number()) == 0 ||
           failWith(errno, "synchronize", path_, error);
  }

  bool close(std::optional<Error>* error) override {
    return ::close(descriptor_.release()) == 0 || failWith(errno, "close", path_, error);
  }

 private:
  Descriptor descriptor_;
  std::string path_;
};

class PosixMappedFile final : public MappedFile {
 public:
  PosixMappedFile(Descriptor descriptor, std::string_view bytes, std::string path)
      : descriptor_(std::move(descriptor)), bytes_(bytes), path_(std::move(path)) {}
  PosixMappedFile(const PosixMappedFile&) = delete;
  PosixMappedFile& operator=(const PosixMappedFile&) = delete;
  ~PosixMappedFile() override {
    if (!bytes_.empty()) ::munmap(const_cast<char*>(bytes_.data()), bytes_.size());
  }
  [[nodiscard]] std::string_view bytes() const noexcept override { return bytes_; }

  bool copyBytes(std::uint64_t offset, char* to, std::size_t count,
                 std::optional<Error>* error) const override {
    if (offset > bytes_.size() || count > bytes_.size() - offset) {
      return failWith(EINVAL, "read", path_, error);
    }
    for (auto place = static_cast<off_t>(offset); count > 0;) {
      const ssize_t copied = ::pread(descriptor_.number(), to, count, place);
      if (copied < 0 && errno == EINTR) continue;
      // No byte where there was one: another process has cut the file off.
      if (copied <= 0) return failWith(copied < 0 ? errno : EIO, "read", path_, error);
      to += copied;
      place += copied;
      count -= static_cast<std::size_t>(copied);
    }
    return true;
  }

 private:
  const Descriptor descriptor_;
  const std::string_view bytes_;
  const std::string path_;
};

class PosixFileLock final : public FileLock {
 public:
  explicit PosixFileLock(Descriptor descriptor) : descriptor_(std::move(descriptor)) {}

 private:
  Descriptor descriptor_;  // the lock goes with it
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

  bool fileIsReadableAtPath(std::string_view path, std::optional<Error>* error) override;
  std::optional<std::string> resolvedPathOfItemAtPath(std::string_view path,
                                                      std::optional<Error>* error) override;
  std::optional<std::uint64_t> sizeOfItemAtPath(std::string_view path,
                                                std::optional<Error>* error) override;
  std::optional<FileSystemSpace> spaceAtPath(std::string_view path,
                                             std::optional<Error>* error) override;
  std::optional<Data> contentsAtPath(std::string_view path, std::optional<Error>* error) override;
  std::unique_ptr<MappedFile> mapFileAtPath(std::string_view path,
                                            std::optional<Error>* error) override;
  std::optional<std::uint64_t> lengthOfFileAtPath(std::string_view path) override;
  std::optional<FileIdentity> identityOfFileAtPath(std::string_view path,
                                                   std::optional<Error>* error) override;
  std::optional<std::vector<std::string>> contentsOfDirectoryAtPath(
      std::string_view path, std::optional<Error>* error) override;
  bool createDirectoryAtPath(std::string_view path, std::optional<Error>* error) override;
  bool createPrivateDirectoryAtPath(std::string_view path, std::optional<Error>* error) override;
  std::unique_ptr<WritableFile> createFileAtPath(std::string_view path,
                                                 std::optional<Error>* error) override;
  std::unique_ptr<WritableFile> createPrivateFileAtPath(std::string_view path,
                                                        std::optional<Error>* error) override;
  void makePrivateItemAtPath(std::string_view path) override;
  bool copyAccessToFileAtPath_fromFileAtPath(std::string_view path, std::string_view otherPath,
                                             std::optional<Error>* error) override;
  std::unique_ptr<WritableFile> openFileAtPath_length(std::string_view path, std::uint64_t length,
                                                      std::optional<Error>* error) override;
  bool synchronizeDirectoryAtPath(std::string_view path, std::optional<Error>* error) override;
  std::unique_ptr<BatchSync> beginBatchSyncAtPath(std::string_view path,
                                                  std::size_t files) override {
    return beginFileSystemSync(path, files);
  }
  bool moveItemAtPath_toPath(std::string_view path, std::string_view newPath,
                             std::optional<Error>* error) override;
  bool exchangeItemAtPath_withItemAtPath(std::string_view path, std::string_view otherPath,
                                         std::optional<Error>* error) override;
  bool withdrawItemAtPath_toPath(std::string_view path, std::string_view newPath,
                                 std::optional<Error>* error) override;
  bool removeItemAtPath(std::string_view path, std::optional<Error>* error) override;
  std::unique_ptr<FileLock> lockFileAtPath(std::string_view path,
                                           std::optional<Error>* error) override;

 private:
  static bool lookAt(std::string_view path, struct stat& status);
};

std::string_view withoutSeparatorsAtEnd(std::string_view path) {
  return path.substr(0, path.find_last_not_of('/') + 1);
}

/// Looks at the item itself, never at what a link leads to. A "/" behind a link would have the
/// system follow it; here it only says that the item is to be a directory.
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

/// Everything that is left to read, or nothing with the system's error number.
std::optional<std::string> readToEnd(const Descriptor& file, std::size_t expectedSize) {
  try {
    // One more, so that the read that finds the end needs no larger buffer.
    std::string bytes(expectedSize + 1, '\0');
    std::size_t length = 0;
    while (true) {
      const ssize_t count = ::read(file.number(), bytes.data() + length, bytes.size() - length);
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) return std::nullopt;
      if (count == 0) break;
      length += static_cast<std::size_t>(count);
      if (length == bytes.size()) bytes.resize(2 * length);
    }
    bytes.resize(length);
    return bytes;
  } catch (const std::exception&) {  // a file larger than memory, or than any string
    errno = ENOMEM;
    return std::nullopt;
  }
}

/// The regular file at the path, open for reading, with its state; not open on failure.
Descriptor openFile(std::string_view path, struct stat& status, std::optional<Error>* error) {
  // Not blocking, so that opening a pipe cannot hang; the check below then refuses it.
  Descriptor file = open(path, O_RDONLY | O_NONBLOCK);
  if (!file.isOpen() || ::fstat(file.number(), &status) != 0) {
    failWith(errno, "open", path, error);
    return Descriptor(-1);
  }
  if (!S_ISREG(status.st_mode)) {
    failWith(S_ISDIR(status.st_mode) ? EISDIR : EINVAL, "read", path, error);
    return Descriptor(-1);
  }
  return file;
}

std::optional<Data> PosixFileManager::contentsAtPath(std::string_view path,
                                                     std::optional<Error>* error) {
  struct stat status {};
  const Descriptor file = openFile(path, status, error);
  if (!file.isOpen()) return std::nullopt;
  auto bytes = readToEnd(file, static_cast<std::size_t>(status.st_size));
  if (!bytes) {
    failWith(errno, "read", path, error);
    return std::nullopt;
  }
  return Data(std::move(*bytes));
}

std::unique_ptr<MappedFile> PosixFileManager::mapFileAtPath(std::string_view path,
                                                            std::optional<Error>* error) {
  struct stat status {};
  Descriptor file = openFile(path, status, error);
  if (!file.isOpen()) return nullptr;
  const auto size = static_cast<std::size_t>(status.st_size);
  std::string name(path);
  if (size == 0) {
    return std::make_unique<PosixMappedFile>(std::move(file), std::string_view(), std::move(name));
  }
  void* const start = ::mmap(nullptr, size, PROT_READ, MAP_SHARED, file.number(), 0);
  if (start == MAP_FAILED) {
    failWith(errno, "map", path, error);
    return nullptr;
  }
  const std::string_view bytes(static_cast<char*>(start), size);
  return std::make_unique<PosixMappedFile>(std::move(file), bytes, std::move(name));
}

std::optional<std::uint64_t> PosixFileManager::lengthOfFileAtPath(std::string_view path) {
  struct stat status {};
  if (!lookAt(path, status) || !S_ISREG(status.st_mode)) return std::nullopt;
  return static_cast<std::uint64_t>(status.st_size);
}

std::int64_t nanoseconds(const struct timespec& time) {
  return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

std::optional<FileIdentity> PosixFileManager::identityOfFileAtPath(std::string_view path,
                                                                   std::optional<Error>* error) {
  struct stat status {};
  const SystemPath systemPath(path);
  if (!systemPath.isValid() || ::stat(systemPath.c_str(), &status) != 0) {
    failWith(systemPath.isValid() ? errno : EINVAL, "look at", path, error);
    return std::nullopt;
  }
#if defined(__APPLE__)
  const auto modified = nanoseconds(status.st_mtimespec);
  const auto changed = nanoseconds(status.st_ctimespec);
#else
  const auto modified = nanoseconds(status.st_mtim);
  const auto changed = nanoseconds(status.st_ctim);
#endif
  return FileIdentity{static_cast<std::uint64_t>(status.st_dev),
                      static_cast<std::uint64_t>(status.st_ino),
                      static_cast<std::uint64_t>(status.st_size), modified, changed};
}

bool PosixFileManager::fileIsReadableAtPath(std::string_view path, std::optional<Error>* error) {
  struct stat status {};
  const Descriptor file = openFile(path, status, error);
  if (!file.isOpen()) return false;
  char byte = 0;
  ssize_t count = 0;
  do {
    count = ::read(file.number(), &byte, 1);
  } while (count < 0 && errno == EINTR);
  return count >= 0 || failWith(errno, "read", path, error);
}

std::optional<std::string> PosixFileManager::resolvedPathOfItemAtPath(std::string_view path,
                                                                      std::optional<Error>* error) {
  const SystemPath systemPath(path);
  char* const resolved = systemPath.isValid() ? ::realpath(systemPath.c_str(), nullptr) : nullptr;
  if (!resolved) {
    failWith(systemPath.isValid() ? errno : EINVAL, "resolve", path, error);
    return std::nullopt;
  }
  std::string result(resolved);
  std::free(resolved);
  return result;
}

std::optional<std::uint64_t> PosixFileManager::sizeOfItemAtPath(std::string_view path,
                                                                std::optional<Error>* error) {
  struct stat status {};
  std::optional<std::uint64_t> size;
  if (lookAt(path, status)) size = posix::sizeOnDisk(std::string(path), status);
  if (!size) failWith(errno, "measure", path, error);
  return size;
}

std::optional<FileSystemSpace> PosixFileManager::spaceAtPath(std::string_view path,
                                                             std::optional<Error>* error) {
  const bool isValid = SystemPath(path).isValid();
  const auto space = isValid ? posix::spaceOfFileSystem(path) : std::nullopt;
  if (!space) failWith(isValid ? errno : EINVAL, "measure the space at", path, error);
  return space;
}

std::optional<std::vector<std::string>> PosixFileManager::contentsOfDirectoryAtPath(
    std::string_view path, std::optional<Error>* error) {
  Descriptor directory = open(path, O_RDONLY | O_DIRECTORY);
  std::optional<std::vector<std::string>> names;
  if (directory.isOpen()) names = namesInDirectory(std::move(directory));
  if (!names) failWith(errno, "list", path, error);
  return names;
}

bool PosixFileManager::createDirectoryAtPath(std::string_view path, std::optional<Error>* error) {
  const bool isValid = SystemPath(path).isValid();
  const int number = isValid ? posix::makeDirectories(std::string(path)) : EINVAL;
  return number == 0 || failWith(number, "create", path, error);
}

bool PosixFileManager::createPrivateDirectoryAtPath(std::string_view path,
                                                    std::optional<Error>* error) {
  const bool isValid = SystemPath(path).isValid();
  const int number = isValid ? posix::makePrivateDirectory(std::string(path)) : EINVAL;
  return number == 0 || failWith(number, "create", path, error);
}

std::unique_ptr<WritableFile> writableFile(Descriptor file, std::string_view path,
                                           std::optional<Error>* error) {
  if (!file.isOpen()) {
    failWith(errno, "create", path, error);
    return nullptr;
  }
  return std::make_unique<PosixWritableFile>(std::move(file), std::string(path));
}

std::unique_ptr<WritableFile> PosixFileManager::createFileAtPath(std::string_view path,
                                                                 std::optional<Error>* error) {
  return writableFile(open(path, O_WRONLY | O_CREAT | O_EXCL), path, error);
}

std::unique_ptr<WritableFile> PosixFileManager::createPrivateFileAtPath(
    std::string_view path, std::optional<Error>* error) {
  Descriptor file = open(path, O_WRONLY | O_CREAT | O_EXCL, posix::privateFileMode);
  if (file.isOpen()) posix::makePrivate(file.number());
  return writableFile(std::move(file), path, error);
}

void PosixFileManager::makePrivateItemAtPath(std::string_view path) {
  if (SystemPath(path).isValid()) posix::makePrivate(std::string(path));
}

bool PosixFileManager::copyAccessToFileAtPath_fromFileAtPath(std::string_view path,
                                                             std::string_view otherPath,
                                                             std::optional<Error>* error) {
  struct stat status {};
  if (!lookAt(otherPath, status)) return failWith(errno, "look at", otherPath, error);
  const Descriptor file = open(path, O_WRONLY | O_NOFOLLOW | O_NONBLOCK);
  return (file.isOpen() && ::fchmod(file.number(), status.st_mode & 0777) == 0) ||
         failWith(errno, "share", path, error);
}

std::unique_ptr<WritableFile> PosixFileManager::openFileAtPath_length(std::string_view path,
                                                                      std::uint64_t length,
                                                                      std::optional<Error>* error) {
  struct stat status {};
  Descriptor file = open(path, O_WRONLY | O_APPEND | O_NOFOLLOW | O_NONBLOCK);
  bool isReady = file.isOpen() && ::fstat(file.number(), &status) == 0;
  if (isReady && !S_ISREG(status.st_mode)) {
    errno = EINVAL;
    isReady = false;
  }
  const auto wanted = static_cast<off_t>(length);
  if (isReady && status.st_size > wanted) isReady = ::ftruncate(file.number(), wanted) == 0;
  if (!isReady) {
    failWith(errno, "open", path, error);
    return nullptr;
  }
  return std::make_unique<PosixWritableFile>(std::move(file), std::string(path));
}

bool PosixFileManager::synchronizeDirectoryAtPath(std::string_view path,
                                                  std::optional<Error>* error) {
  const Descriptor directory = open(path, O_RDONLY | O_DIRECTORY);
  if (directory.isOpen() && synchronizeDescriptor(directory.number()) == 0) return true;
  return failWith(errno, "synchronize", path, error);
}

bool PosixFileManager::moveItemAtPath_toPath(std::string_view path, std::string_view newPath,
                                             std::optional<Error>* error) {
  const SystemPath from(path);
  const SystemPath to(newPath);
  if (!from.isValid() || !to.isValid()) return failWith(EINVAL, "rename", path, error);
  return ::rename(from.c_str(), to.c_str()) == 0 || failWith(errno, "rename", path, error);
}

bool PosixFileManager::exchangeItemAtPath_withItemAtPath(std::string_view path,
                                                         std::string_view otherPath,
                                                         std::optional<Error>* error) {
  const SystemPath one(path);
  const SystemPath other(otherPath);
  if (!one.isValid() || !other.isValid()) return failWith(EINVAL, "exchange", path, error);
#if defined(RENAME_EXCHANGE)
  const int result = ::renameat2(AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE);
#elif defined(RENAME_SWAP)
  const int result = ::renamex_np(one.c_str(), other.c_str(), RENAME_SWAP);
#else
  const int result = -1;
  errno = ENOTSUP;
#endif
  return result == 0 || failWith(errno, "exchange", path, error);
}

bool PosixFileManager::withdrawItemAtPath_toPath(std::string_view path, std::string_view newPath,
                                                 std::optional<Error>* error) {
  struct stat status {};
  if (!lookAt(path, status)) return failWith(errno, "withdraw", path, error);
  const auto place = placeOfItem(path);
  const auto newPlace = SystemPath(newPath).isValid() ? placeOfItem(newPath) : std::nullopt;
  if (!place || !newPlace) return failWith(EINVAL, "withdraw", path, error);
  return posix::withdrawItem(*place, *newPlace, removalRoots(), path, error);
}

bool PosixFileManager::removeItemAtPath(std::string_view path, std::optional<Error>* error) {
  struct stat status {};
  if (!lookAt(path, status)) return failWith(errno, "remove", path, error);
  const auto place = placeOfItem(path);
  if (!place) return failWith(EINVAL, "remove", path, error);
  return removeItem(*place, removalRoots(), path, error);
}

/// Zero where the open file still lies at the path, ENOENT where it does not: its former holder may
/// have removed it between our opening and our locking it. Otherwise the system's error number.
int lookForFile(const Descriptor& file, std::string_view path) {
  struct stat opened {};
  struct stat named {};
  if (::fstat(file.number(), &opened) != 0 || ::lstat(SystemPath(path).c_str(), &named) != 0) {
    return errno;
  }
  return opened.st_dev == named.st_dev && opened.st_ino == named.st_ino ? 0 : ENOENT;
}

std::unique_ptr<FileLock> PosixFileManager::lockFileAtPath(std::string_view path,
                                                           std::optional<Error>* error) {
  constexpr int mostAttempts = 100;
  int number = ENOENT;
  for (int attempt = 0; attempt < mostAttempts && number == ENOENT; ++attempt) {
    Descriptor file = open(path, O_RDWR | O_CREAT | O_NOFOLLOW, posix::privateFileMode);
    if (!file.isOpen() || ::flock(file.number(), LOCK_EX | LOCK_NB) != 0) {
      failWith(errno, "lock", path, error);
      return nullptr;
    }
    number = lookForFile(file, path);
    posix::makePrivate(file.number());
    if (number == 0) return std::make_unique<PosixFileLock>(std::move(file));
  }
  failWith(number, "lock", path, error);
  return nullptr;
}

}  // namespace

FileManager& systemFileManager() {
  static auto& manager = *new PosixFileManager;
  return manager;
}

}  // namespace kiv
