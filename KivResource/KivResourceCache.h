#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/values/Error.h"
#include "KivPlatform/KivRESTService/KivRESTServiceSettings.h"
#include "KivPlatform/KivStorageService/ArchiveLimits.h"

class KivAppConfiguration;
class KivResourceManager;

namespace kiv {
struct CachePlace;
}

/// What a cache of its own is made of.
struct KivResourceCacheOptions {
  /// The storage root. A relative path is resolved against the current working directory. No other
  /// part of the program should use the directory.
  std::string rootPath;
  /// The servers, as of KivAppConfiguration. They can be changed later.
  std::optional<std::string> mainACSDomain = {};
  std::optional<std::string> reserveACSDomain = {};
  /// Of the manager's client; nothing for those of new clients (KivRESTService::defaultSettings).
  std::optional<KivRESTServiceSettings> settings = {};
  /// The directory that holds the packaged resources, the "InnerAdResources.bundle" of this cache;
  /// empty for none. Nothing for that of the framework (kiv::Bundle).
  std::optional<std::string> packagedResourcesPath = {};
  /// As of KivResourceLookup::setRoots(). By default an item that names a file elsewhere on the
  /// disk is not loaded from there.
  std::optional<std::vector<std::string>> lookupRoots = std::vector<std::string>();
  kiv::ArchiveLimits archiveLimits = {};
};

/// A cache: a storage root with servers, settings and a manager, for example one of several
/// libraries in a program that use the framework.
///
/// The process has one cache, on which the static operations of the framework act
/// (KivStorageService, KivResourceStorageModule, KivAppConfiguration::sharedInstance,
/// KivResourceManager::sharedInstance). Others are opened beside it. Everything that the manager of
/// such a cache does goes by its own root, servers and settings, whatever is set for the process.
/// So do KivResourceMaintenance, kiv::Lease and KivConfigurationUpdater, by the manager or the
/// resource that they are given. The kinds of a host (KivResourceFactory::registerKind), the log
/// and the roots of the removal guard that a host sets are common to all caches.
///
/// A cache may be used on any thread; its manager has its own queue as every manager has.
class KIV_EXPORT KivResourceCache {
 public:
  /// Opens a cache and restores its registry from the saved list. To be called on the queue on
  /// which its manager will be used. nullptr and an error of KivStorageServiceErrorDomain (noRoot)
  /// for a path that cannot be a root.
  ///
  /// Caches on one root share the saved list as processes do (KivResourceManager::newInstance).
  static std::shared_ptr<KivResourceCache> open(const KivResourceCacheOptions& options,
                                                std::optional<kiv::Error>* error = nullptr);
  /// The cache of the process. Its root can be changed (KivStorageService::setRootPath).
  static std::shared_ptr<KivResourceCache> sharedInstance();

  KivResourceCache(const KivResourceCache&) = delete;
  KivResourceCache& operator=(const KivResourceCache&) = delete;
  /// A manager that the host still holds stays usable. It keeps the root and the servers.
  ~KivResourceCache();

  /// The absolute path of the storage root; empty if the process has none.
  [[nodiscard]] std::string rootPath() const;
  /// The servers. They may be changed at any time, from any thread.
  [[nodiscard]] std::shared_ptr<KivAppConfiguration> appConfiguration() const;
  /// The manager. The first call for the cache of the process creates it.
  [[nodiscard]] std::shared_ptr<KivResourceManager> manager() const;

  /// Does the work now, on this thread. Static operations that the work calls act on this cache:
  /// KivStorageService, KivResourceStorageModule, KivResourceLookup, KivResourceFactory and
  /// KivResourceMaintenance::space(). The setters of these classes still act on the process. Passes
  /// on what the work throws.
  void perform(const std::function<void()>& work) const;

 private:
  KivResourceCache(std::shared_ptr<const kiv::CachePlace> place,
                   std::shared_ptr<KivResourceManager> manager);

  const std::shared_ptr<const kiv::CachePlace> place_;  ///< nullptr for the cache of the process.
  const std::shared_ptr<KivResourceManager> manager_;   ///< The same.
};
