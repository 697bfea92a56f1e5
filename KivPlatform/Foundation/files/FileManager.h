#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/values/Data.h"
#include "KivPlatform/Foundation/values/Result.h"

namespace kiv {

/// Domain of the file manager's own errors. Other errors are of SystemErrorDomain.
inline constexpr std::string_view FileManagerErrorDomain = "kiv.FileManager";

enum class FileManagerErrorCode : int {
  removalRefused = 1,  ///< The item is outside the roots of the removal guard.
};

/// Disk space of a file system, in bytes.
struct FileSystemSpace {
  std::uint64_t used = 0;
  std::uint64_t available = 0;  ///< What this process can still write.
};

/// Identifies one state of a file. It changes when the file is replaced, written or truncated. The
/// inode number may be reused unless the file is kept open or mapped.
struct FileIdentity {
  std::uint64_t device = 0;
  std::uint64_t number = 0;
  std::uint64_t length = 0;
  std::int64_t modified = 0;  ///< Nanoseconds since 1970; resolution of the file system.
  std::int64_t changed = 0;   ///< The same for the inode (ctime); a rename changes it too.

  friend bool operator==(const FileIdentity& a, const FileIdentity& b) = default;
};

/// A file open for writing. The destructor closes it without a sync.
class KIV_EXPORT WritableFile {
 public:
  virtual ~WritableFile() = default;
  /// Appends all of the bytes, or fails.
  [[nodiscard]] virtual Status write(std::string_view bytes) = 0;
  /// Waits until the written bytes are on the disk (fsync). After a failure the contents are
  /// undefined: discard the file and never sync it again.
  [[nodiscard]] virtual Status synchronize() = 0;
  /// Closes the file and reports a deferred write error. No other member may be called afterwards.
  [[nodiscard]] virtual Status close() = 0;
};

/// A regular file mapped into memory. The mapping stays valid if the file is renamed or removed.
class KIV_EXPORT MappedFile {
 public:
  virtual ~MappedFile() = default;
  /// The bytes, valid while this object lives. If another process truncates the file, reading
  /// beyond its new end raises SIGBUS.
  [[nodiscard]] virtual std::string_view bytes() const noexcept KIV_LIFETIME_BOUND = 0;
  /// Copies `count` bytes from `offset` to `to`. Fails if they cannot be read, for example because
  /// the file was truncated.
  [[nodiscard]] virtual Status copyBytes(std::uint64_t offset, char* to,
                                         std::size_t count) const = 0;
};

/// A single sync for many files (syncfs).
class KIV_EXPORT BatchSync {
 public:
  virtual ~BatchSync() = default;
  /// True if it takes less time than syncing that many files one by one.
  [[nodiscard]] virtual bool pays(std::size_t files) const = 0;
  /// Waits until everything that was written below the directory since this object was created is
  /// on the disk. Called at most once. After a failure the contents are undefined: discard them.
  [[nodiscard]] virtual Status synchronize() = 0;
};

/// An advisory lock on a file, held until the object is destroyed or the process ends.
class KIV_EXPORT FileLock {
 public:
  virtual ~FileLock() = default;
};

/// The interface through which all file operations go. The process has one file manager. Tests
/// replace it by one that fails or loses unsynced data.
///
/// Paths are UTF-8. Errors are of SystemErrorDomain unless stated otherwise. Operations may be
/// called from any thread; the caller must serialize those on the same path. A path that ends in
/// "/" must name a directory, not a link to one.
class KIV_EXPORT FileManager {
 public:
  /// The current file manager.
  static FileManager& defaultManager();
  /// Replaces the file manager and returns the previous one. nullptr means the operating system's
  /// file manager, both as argument and as result. The caller keeps ownership, and must keep the
  /// object alive while it is in use. For tests only, before other threads run.
  static FileManager* setDefaultManager(FileManager* manager);

  /// Sets the roots of the removal guard, which every file manager that works on the system's files
  /// obeys: an item is removed only if it is below one of these directories, regardless of its
  /// path. An empty list refuses every removal. std::nullopt turns the guard off: then everything
  /// may be removed.
  ///
  /// By default the roots are the directories whose contents the framework creates itself: the
  /// private directories of its services. While it removes resources of a cache, it is confined to
  /// the directories of that cache.
  ///
  /// The guard checks the directory that contains the item, with all links in its path resolved at
  /// the time of the removal. The roots must be absolute paths, and are resolved in the same way. A
  /// root that is not absolute or is not an existing directory permits nothing. The defaults are
  /// not added to roots set here: a host that sets some must include the storage root, or the
  /// storage service cannot remove what it replaces. May be called from any thread.
  static void setRemovalRoots(std::optional<std::vector<std::string>> roots);
  /// Restores the default roots. May be called from any thread.
  static void restoreRemovalRoots();
  /// The roots for this thread now; nothing if the guard is off. May be called from any thread.
  static std::optional<std::vector<std::string>> removalRoots();

  virtual ~FileManager() = default;

  /// True if the path is a regular file or a link to one. Directories and devices do not count as
  /// files.
  [[nodiscard]] virtual bool fileExistsAtPath(std::string_view path) = 0;
  /// True if the path exists. A broken link exists too.
  [[nodiscard]] virtual bool itemExistsAtPath(std::string_view path) = 0;
  /// True if the path is a directory, not a link to one.
  [[nodiscard]] virtual bool directoryExistsAtPath(std::string_view path) = 0;
  /// True if the path is a symbolic link, broken or not.
  [[nodiscard]] virtual bool linkExistsAtPath(std::string_view path) = 0;

  /// Success if the path is a regular file, or a link to one, that can be opened and read.
  [[nodiscard]] virtual Status fileIsReadableAtPath(std::string_view path) = 0;
  /// The absolute path of an existing item, without links, ".", ".." or empty components.
  [[nodiscard]] virtual Result<std::string> resolvedPathOfItemAtPath(std::string_view path) = 0;
  /// The bytes that an item occupies on the disk: of a directory, with everything in it; of a link,
  /// those of the link itself.
  [[nodiscard]] virtual Result<std::uint64_t> sizeOfItemAtPath(std::string_view path) = 0;
  /// The disk space of the file system of the path, which need not exist.
  [[nodiscard]] virtual Result<FileSystemSpace> spaceAtPath(std::string_view path) = 0;

  /// The whole contents of a regular file, or of one that a link leads to.
  [[nodiscard]] virtual Result<Data> contentsAtPath(std::string_view path) = 0;
  /// A regular file, or one that a link leads to, mapped instead of read.
  [[nodiscard]] virtual Result<std::unique_ptr<MappedFile>> mapFileAtPath(
      std::string_view path) = 0;
  /// The length in bytes of a regular file; nothing if the path is anything else, for example a
  /// link.
  [[nodiscard]] virtual std::optional<std::uint64_t> lengthOfFileAtPath(std::string_view path) = 0;
  /// The identity of the item at the path. Links are followed. The default implementation looks up
  /// the system's file.
  [[nodiscard]] virtual Result<FileIdentity> identityOfFileAtPath(std::string_view path);
  /// True if both paths lead to the same item, links followed. The paths may differ in spelling
  /// alone, if the file system ignores case or Unicode normalization. Two names of one file (hard
  /// links) are the same item.
  [[nodiscard]] bool itemAtPath_isItemAtPath(std::string_view path, std::string_view otherPath);
  /// The names of a directory's entries without "." and "..", in unspecified order.
  [[nodiscard]] virtual Result<std::vector<std::string>> contentsOfDirectoryAtPath(
      std::string_view path) = 0;
  /// The names of the regular files among the first `mostEntries` entries of a directory, in
  /// unspecified order. Links are left out, and so are entries whose type the file system does not
  /// report. The default implementation lists the system's directory.
  [[nodiscard]] virtual Result<std::vector<std::string>> filesOfDirectoryAtPath_mostEntries(
      std::string_view path, std::size_t mostEntries);

  /// Creates the directory and its missing parents. Succeeds if it exists already. The mode of a
  /// new directory follows the process's umask, but is never writable by others.
  [[nodiscard]] virtual Status createDirectoryAtPath(std::string_view path) = 0;
  /// The same with mode 0700, regardless of the umask. Missing parents follow the umask. The
  /// default implementation calls createDirectoryAtPath() and makePrivateItemAtPath().
  [[nodiscard]] virtual Status createPrivateDirectoryAtPath(std::string_view path);
  /// Creates a file and opens it for writing. Fails if the path exists. The mode follows the
  /// process's umask, but is never writable by others.
  [[nodiscard]] virtual Result<std::unique_ptr<WritableFile>> createFileAtPath(
      std::string_view path) = 0;
  /// The same with mode 0600, regardless of the umask. The default implementation calls
  /// createFileAtPath() and makePrivateItemAtPath().
  [[nodiscard]] virtual Result<std::unique_ptr<WritableFile>> createPrivateFileAtPath(
      std::string_view path);
  /// Removes the permissions of group and others from a regular file or directory that the
  /// process's user owns. Anything else, such as a link or a directory with the sticky bit, is left
  /// unchanged. Failures are ignored. The default implementation changes the system's item.
  virtual void makePrivateItemAtPath(std::string_view path);
  /// Gives the regular file at `path`, which must not be a link, the permissions of the file at
  /// `otherPath`. The default implementation works on the system's files.
  [[nodiscard]] virtual Status copyAccessToFileAtPath_fromFileAtPath(std::string_view path,
                                                                     std::string_view otherPath);
  /// Opens the regular file at the path, which must not be a link, for appending. If it is longer
  /// than `length` bytes, it is truncated to that length.
  [[nodiscard]] virtual Result<std::unique_ptr<WritableFile>> openFileAtPath_length(
      std::string_view path, std::uint64_t length) = 0;
  /// Sets the modification time of the regular file at the path, which must not be a link, to the
  /// current second. The fraction of the second stays, which shows that the file was touched and
  /// not written again. The default implementation works on the system's files.
  [[nodiscard]] virtual Status touchFileAtPath(std::string_view path);
  /// Waits until the entries of the directory (created, renamed, removed) are on the disk (fsync).
  [[nodiscard]] virtual Status synchronizeDirectoryAtPath(std::string_view path) = 0;

  /// Waits until the written bytes of all the files are on the disk, as
  /// WritableFile::synchronize() does. Returns the result for each, in their order. The system's
  /// file manager lets the waits overlap, on threads of its own; the default implementation syncs
  /// one file after another.
  [[nodiscard]] virtual std::vector<Status> synchronizeFiles(
      const std::vector<WritableFile*>& files);

  /// Prepares a single sync for files that will be written below the existing directory. Returns
  /// nullptr, which is not an error, if that is not possible. The caller must then sync each file
  /// and directory.
  [[nodiscard]] virtual std::unique_ptr<BatchSync> beginBatchSyncAtPath(std::string_view path) = 0;

  /// Atomic rename. An existing file at the new path is replaced; an existing directory must be
  /// empty.
  [[nodiscard]] virtual Status moveItemAtPath_toPath(std::string_view path,
                                                     std::string_view newPath) = 0;
  /// Gives the regular file at `path`, which must not be a link, a second name (a hard link). Fails
  /// if the new path exists, or if the file system does not support the link. The default
  /// implementation works on the system's files.
  [[nodiscard]] virtual Status linkFileAtPath_toPath(std::string_view path,
                                                     std::string_view newPath);
  /// Exchanges two items atomically. Fails if the file system does not support that.
  [[nodiscard]] virtual Status exchangeItemAtPath_withItemAtPath(std::string_view path,
                                                                 std::string_view otherPath) = 0;
  /// Renames an item so that it can be removed at the new path. Fails with removalRefused if one of
  /// the two parent directories is outside the roots of the removal guard. A link itself is
  /// renamed, not its target.
  [[nodiscard]] virtual Status withdrawItemAtPath_toPath(std::string_view path,
                                                         std::string_view newPath) = 0;
  /// Removes a file, a link (never its target), or a directory with everything in it. Fails if the
  /// path does not exist, ends in "." or "..", or is the root directory. Fails with removalRefused
  /// if the removal guard does not permit it (setRemovalRoots).
  [[nodiscard]] virtual Status removeItemAtPath(std::string_view path) = 0;

  /// Removes the item at the path and ignores failures. For items that a later sweep would remove.
  void discardItemAtPath(std::string_view path);

  /// Takes an advisory lock on the file at the path without waiting. The file is created if
  /// necessary, and gets mode 0600. Fails with EAGAIN if the lock is held by another process or by
  /// another FileLock of this process. The locked file is the one at the path when this returns. So
  /// as long as only the holder of the lock removes the file, there are never two holders for one
  /// path.
  [[nodiscard]] virtual Result<std::unique_ptr<FileLock>> lockFileAtPath(std::string_view path) = 0;
};

/// Takes ownership of the regular file at the path, which must not be written any more. The file is
/// mapped, not read, and its descriptor stays open. It is removed with the last copy of the data,
/// unless Data::takeFile() has passed it to another owner. `keeper` is released at either moment.
/// On failure the file is left unchanged and the caller keeps it.
KIV_EXPORT Result<Data> fileDataAtPath(std::string path, std::shared_ptr<void> keeper = nullptr);

}  // namespace kiv
