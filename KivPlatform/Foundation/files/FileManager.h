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

/// Domain of the errors that the file manager makes itself.
inline constexpr std::string_view FileManagerErrorDomain = "kiv.FileManager";

enum class FileManagerErrorCode : int {
  removalRefused = 1,  ///< The item lies outside the directories in which things may be removed.
};

/// Space of a file system, in bytes.
struct FileSystemSpace {
  std::uint64_t used = 0;
  std::uint64_t available = 0;  ///< What this process may still write.
};

/// Identifies one state of a file: it changes when the file is replaced, written or truncated. The
/// inode number may be reused unless the file is kept open or mapped.
struct FileIdentity {
  std::uint64_t device = 0;
  std::uint64_t number = 0;
  std::uint64_t length = 0;
  std::int64_t modified = 0;  ///< Nanoseconds since 1970, as fine as the file system counts.
  std::int64_t changed = 0;   ///< The same of the file's attributes, its name among them.

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
  /// Closes the file, and reports a late write error. Nothing may be called afterwards.
  [[nodiscard]] virtual Status close() = 0;
};

/// The mapped bytes of a regular file. The mapping stays valid if the file is renamed or removed.
class KIV_EXPORT MappedFile {
 public:
  virtual ~MappedFile() = default;
  /// The bytes. If another process truncates the file, reading beyond its new end raises SIGBUS.
  [[nodiscard]] virtual std::string_view bytes() const noexcept KIV_LIFETIME_BOUND = 0;
  /// Copies `count` bytes from `offset` on. Fails if they cannot be read, also because the file was
  /// truncated.
  [[nodiscard]] virtual Status copyBytes(std::uint64_t offset, char* to,
                                         std::size_t count) const = 0;
};

/// One sync for many files (syncfs).
class KIV_EXPORT BatchSync {
 public:
  virtual ~BatchSync() = default;
  /// Waits until everything written below the directory since this was created is on the disk.
  /// Called at most once. After a failure the contents are undefined: discard them.
  [[nodiscard]] virtual Status synchronize() = 0;
};

/// An advisory lock on a file, held until the destructor or the end of the process.
class KIV_EXPORT FileLock {
 public:
  virtual ~FileLock() = default;
};

/// Every operation on files goes through this interface. The process has one object of it, which
/// tests replace by one that fails or loses unsynced data.
///
/// Paths are UTF-8. Errors are mostly of SystemErrorDomain. Operations may be called from any
/// thread; the caller orders the calls that concern one path. A "/" at the end of a path says that
/// a directory is meant; a link to one does not count.
class KIV_EXPORT FileManager {
 public:
  /// The file manager in use.
  static FileManager& defaultManager();
  /// Puts another one in use and answers the former, nullptr for the system's own; nullptr brings
  /// that back. The caller keeps it alive while it is in use. For tests, before other threads run.
  static FileManager* setDefaultManager(FileManager* manager);

  /// Names the directories that removals are confined to, in every file manager that works on the
  /// system's files: nothing is removed unless it lies in one of them or below, whatever its path
  /// says. An empty list refuses all; nothing lifts the guard, and then whatever a path names goes.
  ///
  /// At first they are those that hold what the framework makes itself: the directory of downloaded
  /// resources under the storage root, and the private directories of its services.
  ///
  /// What counts is the directory that holds the item, with every link on the way to it resolved at
  /// the moment of the removal. The roots are absolute paths, resolved in the same way; one that is
  /// not absolute, or if no directory stands, permits nothing. No other root is added: a host
  /// that names some names the storage root too, or the storage service cannot clear up what it
  /// replaces. May be called from any thread.
  static void setRemovalRoots(std::optional<std::vector<std::string>> roots);
  /// Brings back those of the framework itself.
  static void restoreRemovalRoots();
  /// The directories that removals are confined to; nothing if the guard has been lifted.
  static std::optional<std::vector<std::string>> removalRoots();

  virtual ~FileManager() = default;

  /// True if a regular file, or a link to one, lies at the path. Directories and devices do not
  /// count as files.
  [[nodiscard]] virtual bool fileExistsAtPath(std::string_view path) = 0;
  /// True if anything lies at the path, also a link that leads nowhere.
  [[nodiscard]] virtual bool itemExistsAtPath(std::string_view path) = 0;
  /// True if a directory, not a link to one, lies at the path.
  [[nodiscard]] virtual bool directoryExistsAtPath(std::string_view path) = 0;
  /// True if a symbolic link lies at the path, wherever it leads.
  [[nodiscard]] virtual bool linkExistsAtPath(std::string_view path) = 0;

  /// Success if a regular file, or a link to one, can be opened and its first byte read.
  [[nodiscard]] virtual Status fileIsReadableAtPath(std::string_view path) = 0;
  /// The absolute path of what lies at the path, without links, "." or ".." or empty components.
  [[nodiscard]] virtual Result<std::string> resolvedPathOfItemAtPath(std::string_view path) = 0;
  /// The bytes that an item takes on the disk; a directory with everything in it, a link by itself.
  [[nodiscard]] virtual Result<std::uint64_t> sizeOfItemAtPath(std::string_view path) = 0;
  /// The space of the file system that the path lies on, or would lie on: it need not be there.
  [[nodiscard]] virtual Result<FileSystemSpace> spaceAtPath(std::string_view path) = 0;

  /// The whole contents of a regular file.
  [[nodiscard]] virtual Result<Data> contentsAtPath(std::string_view path) = 0;
  /// A regular file, mapped instead of read.
  [[nodiscard]] virtual Result<std::unique_ptr<MappedFile>> mapFileAtPath(
      std::string_view path) = 0;
  /// The number of bytes in the regular file at the path, which may not be a link; nothing if
  /// there is none.
  [[nodiscard]] virtual std::optional<std::uint64_t> lengthOfFileAtPath(std::string_view path) = 0;
  /// The identity of the file at the path, or of that to which a link leads. Unless overridden, of
  /// the system's file.
  [[nodiscard]] virtual Result<FileIdentity> identityOfFileAtPath(std::string_view path);
  /// The names of a directory's items, in no given order.
  [[nodiscard]] virtual Result<std::vector<std::string>> contentsOfDirectoryAtPath(
      std::string_view path) = 0;

  /// Makes the directory and the missing ones above it; success also if it exists already. Who may
  /// use a new one follows the process's umask, but others may never write to it.
  [[nodiscard]] virtual Status createDirectoryAtPath(std::string_view path) = 0;
  /// The same for its owner alone (mode 0700), whatever the umask. Those above it are as any other.
  /// Unless overridden, createDirectoryAtPath() and makePrivateItemAtPath().
  [[nodiscard]] virtual Status createPrivateDirectoryAtPath(std::string_view path);
  /// Creates a file that must not exist yet, open for writing. Who may use it follows the process's
  /// umask, but others may never write to it.
  [[nodiscard]] virtual Result<std::unique_ptr<WritableFile>> createFileAtPath(
      std::string_view path) = 0;
  /// The same for its owner alone (mode 0600), whatever the umask. Unless overridden,
  /// createFileAtPath() and makePrivateItemAtPath().
  [[nodiscard]] virtual Result<std::unique_ptr<WritableFile>> createPrivateFileAtPath(
      std::string_view path);
  /// Takes the rights of everybody but its owner from a regular file or a directory if this process
  /// runs as its owner. Anything else, such as a link or a directory with the sticky bit, is left
  /// alone. Failures are ignored. Unless overridden, the system's item.
  virtual void makePrivateItemAtPath(std::string_view path);
  /// Gives the regular file at the path, which may not be a link, the rights of that at the other
  /// path. Unless overridden, the system's files.
  [[nodiscard]] virtual Status copyAccessToFileAtPath_fromFileAtPath(std::string_view path,
                                                                     std::string_view otherPath);
  /// Opens the regular file at the path, which may not be a link, for writing at its end, cut off
  /// after `length` bytes where it is longer; nullptr on failure.
  [[nodiscard]] virtual Result<std::unique_ptr<WritableFile>> openFileAtPath_length(
      std::string_view path, std::uint64_t length) = 0;
  /// Returns when the directory's own entries (made, renamed, removed) have reached the disk.
  [[nodiscard]] virtual Status synchronizeDirectoryAtPath(std::string_view path) = 0;

  /// Prepares one sync for that many files, to be written below the directory, which exists.
  /// nullptr, which is no error, if that is not possible or not faster: each file and each
  /// directory is then to be synced by itself.
  [[nodiscard]] virtual std::unique_ptr<BatchSync> beginBatchSyncAtPath(std::string_view path,
                                                                        std::size_t files) = 0;

  /// Renames in one step; a file at the new path is replaced, a directory there must be empty.
  [[nodiscard]] virtual Status moveItemAtPath_toPath(std::string_view path,
                                                     std::string_view newPath) = 0;
  /// Lets two items change places in one step. Fails if the file system has no such step.
  [[nodiscard]] virtual Status exchangeItemAtPath_withItemAtPath(std::string_view path,
                                                                 std::string_view otherPath) = 0;
  /// Renames an item that is to be removed at the new path. The guard of removals refuses it if one
  /// of the two directories lies outside its roots. A link is moved itself.
  [[nodiscard]] virtual Status withdrawItemAtPath_toPath(std::string_view path,
                                                         std::string_view newPath) = 0;
  /// Removes a file, a link (never what it leads to), or a directory with everything in it. That
  /// nothing lies there is an error too, and so is a path that ends in "." or "..", and that of the
  /// file system's root. What the guard refuses (setRemovalRoots) is an error like any other.
  [[nodiscard]] virtual Status removeItemAtPath(std::string_view path) = 0;

  /// Removes what lies at the path and ignores failures: for what a later sweep removes otherwise.
  void discardItemAtPath(std::string_view path);

  /// Takes the advisory lock of the file at the path, which is created if it is missing and gets
  /// mode 0600. Fails, with EAGAIN, if another process or another lock of this one holds it. The
  /// file locked is the one that lies at the path when this returns: as long as only its holder
  /// removes it, two never hold the lock of one path.
  [[nodiscard]] virtual Result<std::unique_ptr<FileLock>> lockFileAtPath(std::string_view path) = 0;
};

/// Takes over the regular file at the path, which nobody may write to any more. Its bytes are
/// mapped, not read, and a descriptor stays open. The file is removed with the last copy of the
/// data unless Data::takeFile() hands it on; `keeper` is released at that moment too. On failure
/// the file is left alone.
KIV_EXPORT Result<Data> fileDataAtPath(std::string path, std::shared_ptr<void> keeper = nullptr);

}  // namespace kiv
