#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/values/Error.h"
#include "KivResource/maintenance/KivResourceMaintenanceErrors.h"  // IWYU pragma: export

class KivResource;
class KivResourceManager;
struct KivResourceTrim;
struct KivResourceTrimOptions;

/// Maintenance of the cache: differences between lists and disk, removal of unused files, and free
/// space. Called by the host only, never by the framework.
///
/// Stateless. All operations are synchronous, must be called on the manager's queue, and take time
/// proportional to the number of stored files.
///
/// A resource counts as loaded if it is in the manager's registry, or in the saved list with all of
/// its files. Paths are compared with all links resolved, so that a file of a loaded resource is
/// recognised by any of its paths, and so are the links on the way.
class KIV_EXPORT KivResourceMaintenance {
 public:
  KivResourceMaintenance() = delete;

  /// One file, link or directory. An unpacked archive, the directory, is one item.
  struct Item {
    std::string path;
    /// Bytes on disk, with the contents of a directory; nothing if they cannot be determined.
    std::optional<std::uint64_t> size;
    /// The identifier of a resource that needs the file; empty if none does.
    std::string resourceID;
  };

  /// Differences between lists and disk, each sorted by path.
  struct Audit {
    /// Missing files of resources in the registry or the saved list.
    std::vector<Item> missing;
    /// Existing ones that cannot be opened, or whose first byte cannot be read.
    std::vector<Item> unreadable;
    /// Items of the resources directory that no loaded resource uses. A later pass may still use
    /// them: it finds by name the files of resources that an update removed, or that failed.
    std::vector<Item> orphaned;
    /// Orphaned directories without an "index.html", which no pass would find.
    std::vector<Item> partial;
    /// Incomplete files of the storage service, of this process, of others that are running, or
    /// left by one that failed; and bodies of downloads that are incomplete or not stored yet.
    std::vector<Item> temporary;
    /// What hosts keep with kiv::Lease, in this process or another. Hard links take no space of
    /// their own as long as the stored file is there.
    std::vector<Item> leased;
    /// True if downloads are in flight: what they have stored so far counts as orphaned.
    bool downloadsAreInFlight = false;
    /// Why a clean-up would be refused (122): a saved list that cannot be read may name the
    /// orphans. The message says what a user can do.
    std::optional<kiv::Error> listDoubt;
  };

  /// Compares the registry and the saved list with the disk, without changes. Nothing and an error
  /// if a directory cannot be listed, or the resources directory is reached through a link.
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

  /// Removes the items that the audit reports as orphaned or partial, and nothing else: nothing
  /// that a loaded resource uses, and nothing outside the resources directory. A link is removed,
  /// not its target. Continues if an item cannot be removed. Also removes the files of resources
  /// that an update removed, so a host that still shows such a resource should call this later.
  ///
  /// Removes nothing, and returns nothing and an error: while downloads are in flight (120), since
  /// some of their files are in no list yet; if a saved list cannot be read, or was set aside
  /// because of that (122), since it may name the files; and if audit() fails. The message of error
  /// 122 says what a user can do.
  static std::optional<CleanUp> cleanUpOrphans(const KivResourceManager& manager, Mode mode,
                                               std::optional<kiv::Error>* error = nullptr);

  /// Removes as little as possible to bring Space::cacheUsed down to a number of bytes: orphans
  /// first and, if the options say so, loaded resources. See KivResourceTrim. Nothing, and an
  /// error, in the same cases as cleanUpOrphans().
  static std::optional<KivResourceTrim> trim(KivResourceManager& manager,
                                             const KivResourceTrimOptions& options, Mode mode,
                                             std::optional<kiv::Error>* error = nullptr);

  /// Notes that the host shows the resource now, for the rule leastRecentlyShown of trim().
  /// kiv::Lease::take() does this by itself.
  ///
  /// The time is kept as the modification time of the stored files, for all processes on the root,
  /// so that this time does not tell whether their contents have changed.
  /// Files that the framework has not stored are left alone. A failure is ignored, and a power
  /// failure may lose the latest times: then a resource counts as shown earlier, at worst when it
  /// was stored. May be called from any thread.
  static void noteShown(const KivResource& resource);

  /// Bytes.
  struct Space {
    std::uint64_t fileSystemUsed = 0;       ///< Of the file system of the storage root, by anybody.
    std::uint64_t fileSystemAvailable = 0;  ///< What this process may still write there.
    std::uint64_t cacheUsed = 0;            ///< By the framework: list, resources, temporaries.
  };

  /// The used and free space of the cache of the process. May be called before anything was stored.
  static std::optional<Space> space(std::optional<kiv::Error>* error = nullptr);
  /// The same for the manager's cache.
  static std::optional<Space> space(const KivResourceManager& manager,
                                    std::optional<kiv::Error>* error = nullptr);
};
