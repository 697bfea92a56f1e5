#pragma once

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/values/Error.h"

class KivResource;

/// Domain of the errors of leases. Errors of the disk keep their domain.
inline constexpr std::string_view KivResourceLeaseErrorDomain = "kiv.KivResource.KivResourceLease";

enum class KivResourceLeaseErrorCode : int {
  filesMissing = 130,  ///< The resource is not loaded, or its files are gone.
  notCopyable = 131,   ///< The class of the resource cannot be copied.
};

namespace kiv {

/// Keeps the files of a resource while a host shows them.
///
/// Without a lease a pass may replace the resource and remove its files at any time. With one the
/// pass does the same, but the files stay under paths of the lease until it goes. A page that came
/// as an archive keeps its whole directory.
///
///     auto lease = kiv::Lease::take(*resource);
///     if (lease) show(*lease->resource());  // and keep `lease` as long as it is shown
///
/// Files that the framework never removes, such as packaged ones, keep their paths. The others are
/// hard links, or copies where the file system refuses links. They may only be read: a write would
/// change the stored file.
///
/// A lease ends with its process, so its paths are not to be saved. If another storage root is
/// current when it ends, its files stay until a process next opens their root. A child process that
/// was forked must not use it, and leaves it alone when it ends.
///
/// A lease may be taken, moved and destroyed on any thread, also on several at once. All of this
/// blocks on disk I/O: for a page, as long as its directory has files.
class KIV_EXPORT Lease {
 public:
  /// Leases the files of the resource, which stays as it is. The resource may be loaded or a copy
  /// of a loaded one. Nothing, and an error, if its files are not all there, for example because a
  /// pass has just replaced it: the manager then has a newer version, or none.
  ///
  /// Also notes that the resource is shown, as KivResourceMaintenance::noteShown() does.
  static std::optional<Lease> take(const KivResource& resource,
                                   std::optional<Error>* error = nullptr);

  Lease(Lease&&) noexcept;
  Lease& operator=(Lease&&) noexcept;
  Lease(const Lease&) = delete;
  Lease& operator=(const Lease&) = delete;
  /// Ends the lease: its paths are removed.
  ~Lease();

  /// A copy of the resource, of the same class, whose paths are those of the lease. `options` are
  /// not copied. It may be kept longer than the lease, but its files then are gone. nullptr only in
  /// a lease that was moved from.
  [[nodiscard]] const std::shared_ptr<KivResource>& resource() const noexcept { return resource_; }

 private:
  using Paths = std::vector<std::shared_ptr<const std::string>>;
  Lease(std::shared_ptr<KivResource> resource, Paths paths);

  std::shared_ptr<KivResource> resource_;
  Paths paths_;  ///< Each is leased as long as it is owned.
};

}  // namespace kiv
