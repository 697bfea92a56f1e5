#pragma once

#include <memory>
#include <optional>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/values/Error.h"

class KivResource;
class KivResourceManager;

/// Receives the manager's callbacks. An observer overrides those that it wants.
///
/// Each callback is called asynchronously, on the queue with which the observer was registered,
/// in the order of the manager's steps. The resources are the manager's own objects, not copies.
/// The manager does not change a loaded resource any more, so it may be read on the observer's
/// queue. A failed one may still receive its other files, so on a queue other than the manager's
/// only its name, type, engine, resourceID, uid, priority and updated may be read.
class KIV_EXPORT KivResourceManagerObserver {
 public:
  virtual ~KivResourceManagerObserver() = default;

  /// The resource is complete and in the registry, or a pass found it there up to date.
  virtual void resourceManager_didLoadResource(const std::shared_ptr<KivResourceManager>& manager,
                                               const std::shared_ptr<KivResource>& resource) {
    (void)manager, (void)resource;
  }

  /// A file of the resource could not be downloaded or stored, or the pass was refused, which fails
  /// all resources of its configuration. `error` is empty if a download ended with neither data nor
  /// error.
  virtual void resourceManager_didFailToLoadResource_withError(
      const std::shared_ptr<KivResourceManager>& manager,
      const std::shared_ptr<KivResource>& resource, const std::optional<kiv::Error>& error) {
    (void)manager, (void)resource, (void)error;
  }

  /// A pass ended, was refused or was stopped. May be called more than once for a pass, if a
  /// download fails at once while the pass still starts others.
  virtual void resourceManagerDidFinishLoading(const std::shared_ptr<KivResourceManager>& manager) {
    (void)manager;
  }
};
