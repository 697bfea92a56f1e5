#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/values/Data.h"
#include "KivPlatform/Foundation/values/Error.h"
#include "KivPlatform/KivStorageService/ArchiveLimits.h"
#include "KivPlatform/KivStorageService/KivStorageServiceErrors.h"

namespace kiv::storage {
class StagedSave;
class StorageRoot;
class SyncGroup;
}  // namespace kiv::storage

/// Stores files under relative paths below one storage root.
///
/// Never instantiated; all operations are static. Saving is atomic: a path holds either the old
/// file (or directory of an unpacked archive) or the complete new one, even after a crash. One
/// exception: on a file system that cannot exchange two directories in one step, a replaced
/// directory is briefly missing. If the process crashes at that moment, the next one that opens the
/// root moves it back. Incomplete files are kept in the directory `.KivStorageService` under the
/// root. Orphaned ones are removed when a process opens the root; those of other running processes
/// are left alone.
///
/// The mode of a stored file or directory follows the process's umask, but is never writable by
/// others. Modes recorded in an archive are ignored. The directory `.KivStorageService` has mode
/// 0700.
///
/// A save for which the disk has no room fails before anything is written. It needs the size of the
/// contents and a reserve of the same size, at most 1 MiB. If the file system does not report its
/// free space, or fills up meanwhile, the write itself fails.
///
/// The service removes files only below `.KivStorageService`. A host that sets removal roots
/// (kiv::FileManager::setRemovalRoots) must include the storage root. Otherwise files are still
/// saved, but replaced directories and incomplete files remain until a process that may remove them
/// opens the root.
///
/// Errors of the operating system are passed through in kiv::SystemErrorDomain. If only the last
/// step fails, which syncs the directory after the rename, the save reports an error although the
/// new file is already in place.
///
/// Thread-safe; operations may block on disk I/O. The caller must serialize operations that save or
/// delete the same file.
class KIV_EXPORT KivStorageService {
 public:
  /// The absolute path of the storage root: the one that the host set, otherwise a directory for
  /// this program in the user's application data. Empty if there is no root.
  static std::string rootPath();
  /// Sets the storage root. A relative path is resolved against the current working directory now.
  /// std::nullopt restores the default, and an empty path leaves the service without a root.
  /// Setting a path opens the root: orphaned temporary files of earlier processes are removed. Call
  /// this before the root is first used.
  static void setRootPath(std::optional<std::string> path);

  /// Sets the storage root to a directory in the user's cache directory ("XDG_CACHE_HOME", usually
  /// ~/.cache), whose contents the user or the system may remove while no program uses them. Its
  /// name is `name`, or that of this program. Returns false, and changes nothing, if there is no
  /// such directory for this user, or the name is not a valid file name.
  static bool setRootPathInUserCache(const std::optional<std::string>& name = std::nullopt);

  /// The absolute path of the directory for incomplete files, `.KivStorageService` under the root;
  /// empty if there is no root.
  static std::string temporariesPath();

  /// The limits on the contents of one archive. A change applies to later saves. May be called from
  /// any thread.
  static kiv::ArchiveLimits archiveLimits();
  static void setArchiveLimits(const kiv::ArchiveLimits& limits);

  /// Writes the bytes to ROOT/relativePath/fileName, creating missing directories and replacing an
  /// existing file. If the name ends in ".zip", the bytes are an archive. It is unpacked into
  /// ROOT/relativePath/STEM, where STEM is the name without ".zip", replacing an existing
  /// directory. The archive itself is not kept. If the only top-level item of the archive is a
  /// folder with an "index.html" in it, the folder's contents are unpacked instead of the folder.
  ///
  /// Fails and leaves stored files unchanged if the name, the stem or a component of relativePath
  /// is not a valid file name, if the archive is invalid or has no "index.html" at its top level,
  /// or if a directory exists under the name of a file or vice versa. A symbolic link at the path
  /// is replaced, never followed.
  static bool saveData_forFileName_atRelativePath_error(const kiv::Data& data,
                                                        std::string_view fileName,
                                                        std::string_view relativePath,
                                                        std::optional<kiv::Error>* error = nullptr);

  /// The same for a file with mode 0600, regardless of the umask. The umask still applies to the
  /// files of an unpacked archive.
  static bool savePrivateData_forFileName_atRelativePath_error(
      const kiv::Data& data, std::string_view fileName, std::string_view relativePath,
      std::optional<kiv::Error>* error = nullptr);

  /// The same without waiting for the disk, for a file that is not essential: it is replaced in one
  /// step, but after a power failure it may be the old one, empty or missing. Archives are synced
  /// nevertheless.
  static bool savePrivateDataWithoutSync_forFileName_atRelativePath_error(
      const kiv::Data& data, std::string_view fileName, std::string_view relativePath,
      std::optional<kiv::Error>* error = nullptr);

  class Batch;

  /// A file whose contents are written but which does not have its name yet. The destructor removes
  /// the contents unless commit() was called.
  class KIV_EXPORT StagedFile {
   public:
    StagedFile(StagedFile&&) noexcept;
    StagedFile& operator=(StagedFile&&) noexcept;
    ~StagedFile();

    /// Completes the save: waits until the contents are on the disk and moves them to their name.
    /// The first commit waits for all files that its batch has staged, so the others need not wait.
    /// If that wait fails for a file, the file is written again and synced by itself, so that a
    /// file fails only if the disk does not take it. Fails as a save does if the name is taken.
    /// Called at most once.
    bool commit(std::optional<kiv::Error>* error = nullptr);

   private:
    friend class Batch;
    explicit StagedFile(std::unique_ptr<kiv::storage::StagedSave> save);
    std::unique_ptr<kiv::storage::StagedSave> save_;
  };

  /// Group commit for several saves: the fsync of parent directories is deferred and done once, and
  /// so is that of staged files. While a batch exists, each file that any thread saves under the
  /// root is complete under its name at once, but the name is certain to survive a power failure
  /// only after the end of the outermost batch. A batch belongs to the root that was in use when it
  /// was created.
  class KIV_EXPORT Batch {
   public:
    /// Begins a batch for the current root. Without a root, stage() fails and end() has no effect.
    Batch();
    /// Ends the batch unless end() was called; errors are ignored.
    ~Batch();
    Batch(const Batch&) = delete;
    Batch& operator=(const Batch&) = delete;
    /// Begins a save: checks the names and writes the contents, or unpacks the archive. Errors are
    /// those of a save.
    std::optional<StagedFile> stage(const kiv::Data& data, std::string_view fileName,
                                    std::string_view relativePath,
                                    std::optional<kiv::Error>* error = nullptr);
    /// Ends the batch. If it is the outermost one, returns when the names are on the disk. Fails
    /// with an error of the operating system; the saved files exist nevertheless.
    bool end(std::optional<kiv::Error>* error = nullptr);

   private:
    std::shared_ptr<kiv::storage::StorageRoot> root_;
    std::shared_ptr<kiv::storage::SyncGroup> group_;  ///< Of the files staged since the last wait.
  };

  /// Renames the directory at the absolute path, under the root or elsewhere, to a new path in
  /// `.KivStorageService` in one step, and returns that path. The caller then removes it. If the
  /// caller cannot, the next process that opens the root removes it as an orphan. Returns nothing
  /// and changes nothing on failure: the path is on another file system, there is no root, or the
  /// removal guard does not permit both paths.
  static std::optional<std::string> withdrawDirectoryAtPath(std::string_view path);

  /// Keeps the file or directory at the absolute path as it is, under a second path with the same
  /// last component, until the last owner of the returned path releases it, even if this or another
  /// process replaces or removes the item. Links within a directory are left out. A link at the
  /// path itself is followed.
  ///
  /// The second path consists of hard links in `.KivStorageService`, or of copies where the file
  /// system refuses links. Nobody may write to it. It ends with the process: if the process dies,
  /// the next one that opens the root removes it. Returns nullptr, and an error, if the item does
  /// not exist, is being replaced, or can be neither linked nor copied.
  static std::shared_ptr<const std::string> leaseItemAtPath(
      std::string_view path, std::optional<kiv::Error>* error = nullptr);
  /// True if the path is that of a leased item or of something in one. The path must be resolved:
  /// without links and "..".
  static bool isLeasedPath(std::string_view path);

  /// The bytes of ROOT/relativePath/fileName; nothing, and an error, if a name is not valid or the
  /// file is missing or unreadable.
  static std::optional<kiv::Data> loadDataForFileName_atRelativePath_error(
      std::string_view fileName, std::string_view relativePath,
      std::optional<kiv::Error>* error = nullptr);

  /// True if the names are valid and ROOT/relativePath/fileName is a regular file or a link to one.
  static bool fileExistsWithName_atRelativePath(std::string_view fileName,
                                                std::string_view relativePath);

  /// The absolute path ROOT/relativePath/fileName, or relativePath/fileName if there is no root.
  /// Checks neither the names nor the disk.
  static std::string filePathForFileName_atRelativePath(std::string_view fileName,
                                                        std::string_view relativePath);
};
