#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/values/Error.h"

class KivResourceManager;

/// Domain of the errors that maintenance makes itself; those of the disk pass through with their
/// own.
inline constexpr std::string_view KivResourceMaintenanceErrorDomain =
    "kiv.KivResource.KivResourceMaintenance";

enum class KivResourceMaintenanceErrorCode : int {
  downloadsInFlight = 120,   ///< A pass is running; files that it has stored are in no list yet.
  resourcesElsewhere = 121,  ///< A link leads from the resources directory out of the root.
  listInDoubt = 122,         ///< A saved list that cannot be read may name files that are in use.
};

/// Maintenance of the cache: where the lists and the disk disagree, removal of unused files, and
/// free space. The framework never calls any of it; the host does, or lets its user do.
///
/// Never instantiated, without state; all operations run on the manager's queue, at once, and take
/// time there in proportion to what is stored.
///
/// A resource counts as loaded when it is in the manager's registry, or in the saved list with all
/// of its files. Paths are compared with every link in them resolved: a file of a loaded resource
/// is recognised however its path is written, and so is every link that the path leads through.
class KIV_EXPORT KivResourceMaintenance {
 public:
  KivResourceMaintenance() = delete;

  /// One file, link or directory. An unpacked archive, the directory, is one item.
  struct Item {
    std::string path;
    /// Bytes on the disk, of everything in a directory; nothing if they cannot be counted.
    std::optional<std::uint64_t> size;
    /// Of a resource that needs the file; empty if none does.
    std::string resourceID;
  };

  /// Where the lists and the disk disagree, each part in the order of the paths.
  struct Audit {
    /// Files of resources in the registry or the saved list that are not there.
    std::vector<Item> missing;
    /// Those that are there but cannot be opened, or whose first byte cannot be read.
    std::vector<Item> unreadable;
    /// Items of the resources directory that no loaded resource uses. They may still be useful: a
    /// later pass finds files by name that an update dropped, or that were stored for a resource
    /// that failed.
    std::vector<Item> orphaned;
    /// Orphaned directories without an "index.html", which no pass finds either.
    std::vector<Item> partial;
    /// Incomplete files of the storage service, of this process, of others that are running, or
    /// left by one that failed; and bodies of downloads that are incomplete or not stored yet.
    std::vector<Item> temporary;
    /// True if downloads are in flight: what they have stored so far counts as orphaned.
    bool downloadsAreInFlight = false;
    /// Why a clean-up would remove nothing (122), where a saved list is in doubt: orphans may then
    /// be files in use. The message says what a person can do.
    std::optional<kiv::Error> listDoubt;
  };

  /// Compares the registry and the saved list with the disk, and changes nothing. Nothing and an
  /// error where the directories cannot be listed, or if the resources directory is reached
  /// through a link.
  static std::optional<Audit> audit(const KivResourceManager& manager,
                                    std::optional<kiv::Error>* error = nullptr);

  enum class Mode {
    dryRun,  ///< Only tells what would be removed.
    remove,
  };

  struct Refusal {
    Item item;
    kiv::Error error;
  };

  struct CleanUp {
    std::vector<Item> removed;     ///< Or, in a dry run, what would be.
    std::vector<Refusal> refused;  ///< What could not be removed; empty in a dry run.
  };

  /// Removes what the audit calls orphaned or partial, and nothing else: nothing that a loaded
  /// resource uses, and nothing outside the resources directory; of a link, the link. An item that
  /// cannot be removed does not keep the others. A host that still shows a resource which an update
  /// dropped calls this later, since the files of that resource are removed.
  ///
  /// Nothing and an error, with nothing removed, while downloads are in flight (120), since files
  /// of the resources that they belong to are in no list yet; where a saved list may name files
  /// that are in use and are not known (122): one that cannot be read, now or when the manager last
  /// tried, or one that was set aside for that; and where audit() fails. A message with code 122
  /// says what a person can do.
  static std::optional<CleanUp> cleanUpOrphans(const KivResourceManager& manager, Mode mode,
                                               std::optional<kiv::Error>* error = nullptr);

  /// Bytes.
  struct Space {
    std::uint64_t fileSystemUsed = 0;       ///< Of the file system of the storage root, by anybody.
    std::uint64_t fileSystemAvailable = 0;  ///< What this process may still write there.
    std::uint64_t cacheUsed = 0;            ///< By the framework: list, resources, temporaries.
  };

  /// How much space is used and free; may also be asked before anything was stored.
  static std::optional<Space> space(std::optional<kiv::Error>* error = nullptr);
};
