#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "KivPlatform/Foundation/values/Data.h"
#include "KivPlatform/Foundation/values/URL.h"
#include "KivPlatform/KivRESTService/KivRESTServiceValidators.h"
#include "KivResource/list/KivResourceListLock.h"

namespace kiv {

/// Which version of a stored file there is: another one differs in this. The names of leases do
/// not, which are links to the same file, nor does a file that was shown (kiv::noteShown).
struct StoredVersion {
  std::uint64_t number = 0;  ///< Of its inode.
  std::uint64_t length = 0;  ///< In bytes.
  /// The nanoseconds of its modification time, without the seconds, which are those when it was
  /// shown.
  std::uint64_t fraction = 0;

  /// Of what is at the path; nothing if there is nothing.
  static std::optional<StoredVersion> ofFileAtPath(std::string_view path);
  friend bool operator==(const StoredVersion&, const StoredVersion&) = default;
};

/// Which bytes came as an archive, which itself is not kept.
struct ArchiveBytes {
  std::uint64_t length = 0;
  std::uint64_t hash = 0;

  /// Nothing if the data cannot be read.
  static std::optional<ArchiveBytes> of(const Data& data);
  friend bool operator==(const ArchiveBytes&, const ArchiveBytes&) = default;
};

/// Where a stored file came from.
struct FileOrigin {
  std::string link;  ///< As in the configuration.
  /// A digest of the URL that gave the file, which may have a password or a token in it. Empty if
  /// there are no validators.
  std::string url;
  std::string entityTag;
  std::string lastModified;
  /// The version of the stored file that this and the above are about; nothing if that is unknown.
  std::optional<StoredVersion> version;
  std::optional<ArchiveBytes> archive;

  /// Those that it has already keep their digest.
  void setValidators(const KivRESTServiceValidators& validators);
  /// The validators, if it is one of the URLs that gave them.
  [[nodiscard]] std::optional<KivRESTServiceValidators> validatorsFor(const URL& address) const;
  friend bool operator==(const FileOrigin&, const FileOrigin&) = default;
};

/// By the names under which the files are stored; that of an archive ends in ".zip".
using FileOriginMap = std::map<std::string, FileOrigin, std::less<>>;

/// Where the stored files came from: one private file beside the saved list, and what was learnt
/// since it was written. To be used on the manager's queue, within steps.
///
/// The file can be done without, so it is replaced without a wait for the disk, and failures are
/// only logged.
class FileOrigins {
 public:
  FileOrigins() = default;
  FileOrigins(const FileOrigins&) = delete;
  FileOrigins& operator=(const FileOrigins&) = delete;

  /// The file of the link has just been stored, with those bytes. The validators, if there are
  /// some, are those of the response.
  void noteStored(const std::string& link,
                  const std::optional<KivRESTServiceValidators>& validators, const Data& data);
  /// The file of the link was found at the path. Nothing if that is not where it is stored.
  void noteFound(const std::string& link, std::string_view path);
  /// What a revalidation has learnt.
  void note(const std::string& name, FileOrigin origin);

  /// All that is known. Empty if there is no file; if it is not what save() writes, the log says
  /// why it is ignored.
  [[nodiscard]] FileOriginMap load() const;
  /// Writes what was noted, if something was, together with what other processes have written.
  /// Leaves out files that are not there any more. If another process holds the lock of the list
  /// for too long, the next call tries again.
  void save() noexcept;

  /// The absolute path of the file; empty if there is no storage root.
  static std::string path();
  /// The name under which the file at the path is stored, if it is a downloaded one.
  static std::optional<std::string> storedNameOfPath(std::string_view path);
  /// The path of the file of that name, or of the page of that archive; nothing if it is not
  /// allowed.
  static std::optional<std::string> pathOfStoredName(std::string_view name);

 private:
  void write();
  void applyTo(FileOriginMap& origins) const;

  FileOriginMap stored_;                                   ///< What was noted; whole entries.
  std::map<std::string, std::string, std::less<>> found_;  ///< Links of files that were found.
  ListLock lock_{std::chrono::milliseconds(250)};  ///< Other processes hold it for milliseconds.
};

}  // namespace kiv
