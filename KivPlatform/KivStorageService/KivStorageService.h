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
class StorageRoot;
}

/// Files under relative paths of one storage root.
///
/// Never instantiated; all operations are class operations. Saving is atomic: a file, or the
/// directory of an unpacked archive, is either the old one or the complete new one, at every moment
/// and after the process was killed. What is not complete lies in a directory of its own under the
/// root, `.KivStorageService`, and is swept when a process starts to use the root; what another
/// living process is writing there is left alone.
///
/// Who may use a stored file or directory follows the process's umask, but others may never write
/// to it; an archive has no say in it. The service's own directory is its owner's alone (mode
/// 0700).
///
/// A file or an archive for which the disk has no room is refused before anything of it is written;
/// beside what it takes, as much again, but no more than 1 MiB, is to stay free. Where the file
/// system does not tell, or fills up meanwhile, the write fails.
///
/// The service removes only what lies in that directory. A host that names directories of its own
/// for removals (kiv::FileManager::setRemovalRoots) names the root among them. Otherwise
/// files are still saved, but replaced directories and incomplete files stay there until a process
/// that may remove them starts to use the root.
///
/// A failure of the operating system comes as its own error. When only the last step failed,
/// waiting for a rename to reach the disk, the save fails although the new file is there already.
///
/// Operations may be called from any thread; those that save or delete the same file are for the
/// caller to put in order.
class KIV_EXPORT KivStorageService {
 public:
  /// The storage root: the one that the host named, otherwise a directory for this program among
  /// the user's application data. Empty if there is none.
  static std::string rootPath();
  /// Names the storage root. A relative path is taken from the directory that is current now;
  /// nothing brings the default back, and an empty path leaves the service without a root.
  /// Temporary files that earlier processes left under the root are removed. Call it before the
  /// root is first used.
  static void setRootPath(std::optional<std::string> path);

  /// The directory under the root where the service keeps what is not complete; empty if there
  /// is no root.
  static std::string temporariesPath();

  /// What one archive may hold. In use for the archives that are saved from then on.
  static kiv::ArchiveLimits archiveLimits();
  static void setArchiveLimits(const kiv::ArchiveLimits& limits);

  /// Writes the bytes as ROOT/relativePath/fileName, creating missing directories and replacing an
  /// existing file. A name that ends in ".zip" is an archive: its contents are unpacked into
  /// ROOT/relativePath/STEM, STEM being the name without ".zip", in place of a directory that was
  /// there, and the archive itself is not kept. Where a folder is the only entry at the archive's
  /// top and holds the "index.html", its contents go to the top.
  ///
  /// Fails, changing nothing on the disk, where the name (or the stem) cannot be used for a file,
  /// where relativePath is not made of usable names, where the archive holds what it may not hold
  /// or has no "index.html" at its top, and if a directory has a file's name or the reverse. A
  /// symbolic link under the name is replaced, never followed.
  static bool saveData_forFileName_atRelativePath_error(const kiv::Data& data,
                                                        std::string_view fileName,
                                                        std::string_view relativePath,
                                                        std::optional<kiv::Error>* error = nullptr);

  /// The same for a file that its owner alone may read or write (mode 0600), whatever the umask.
  /// What is unpacked of an archive is as any other.
  static bool savePrivateData_forFileName_atRelativePath_error(
      const kiv::Data& data, std::string_view fileName, std::string_view relativePath,
      std::optional<kiv::Error>* error = nullptr);

  /// One wait for the disk for the names of several files: as long as this lives, a file that is
  /// saved under the root of that moment, by whatever thread, is complete under its name at once,
  /// but only the end of the outermost batch makes sure that the name survives a power cut.
  class KIV_EXPORT Batch {
   public:
    Batch();
    /// Ends the batch, if end() did not; failures are ignored.
    ~Batch();
    Batch(const Batch&) = delete;
    Batch& operator=(const Batch&) = delete;
    /// Ends the batch: returns when the names have reached the disk. Fails with the system's error,
    /// the files being there all the same.
    bool end(std::optional<kiv::Error>* error = nullptr);

   private:
    std::shared_ptr<kiv::storage::StorageRoot> root_;
  };

  /// Takes the directory at the absolute path, under the root or elsewhere, out of its place in one
  /// step, with everything in it, and answers where it lies now: in the service's own directory,
  /// for the caller to remove. What is not removed, because the process died or the disk failed,
  /// goes when a process next starts to use the root. Nothing, with nothing changed, where that is
  /// not possible: on another file system, without a root, or under a guard of removals that
  /// permits one of the two places only.
  static std::optional<std::string> withdrawDirectoryAtPath(std::string_view path);

  /// The bytes of ROOT/relativePath/fileName, or nothing if it is missing or unreadable.
  static std::optional<kiv::Data> loadDataForFileName_atRelativePath_error(
      std::string_view fileName, std::string_view relativePath,
      std::optional<kiv::Error>* error = nullptr);

  /// True if ROOT/relativePath/fileName is a regular file under a name that may be used.
  static bool fileExistsWithName_atRelativePath(std::string_view fileName,
                                                std::string_view relativePath);

  /// The absolute path ROOT/relativePath/fileName, whether or not anything lies there.
  static std::string filePathForFileName_atRelativePath(std::string_view fileName,
                                                        std::string_view relativePath);
};
