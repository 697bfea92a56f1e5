#include "KivResource/KivResourceCache.h"

#include <filesystem>
#include <system_error>
#include <utility>

#include "KivPlatform/AppConfiguration/KivAppConfiguration.h"
#include "KivPlatform/Foundation/values/Result.h"
#include "KivPlatform/KivRESTService/KivRESTService.h"
#include "KivPlatform/KivStorageService/KivStorageService.h"
#include "KivResource/KivResourceManager.h"
#include "KivResource/KivResourceRESTModule.h"
#include "KivResource/files/KivResourceCachePlace.h"

namespace {

std::shared_ptr<KivAppConfiguration> serversOf(const KivResourceCacheOptions& options) {
  auto servers = std::make_shared<KivAppConfiguration>();
  servers->setMainACSDomain(options.mainACSDomain);
  servers->setReserveACSDomain(options.reserveACSDomain);
  return servers;
}

/// Made absolute, so that a later change of the working directory does not matter.
std::optional<std::string> absolutePath(const std::optional<std::string>& path) {
  if (!path || path->empty()) return path;
  std::error_code ignored;
  return std::filesystem::absolute(*path, ignored).string();
}

std::shared_ptr<KivResourceRESTModule> loaderFor(const KivResourceCacheOptions& options) {
  return std::make_shared<KivResourceRESTModule>(
      options.settings ? std::make_shared<KivRESTService>(*options.settings)
                       : std::make_shared<KivRESTService>());
}

}  // namespace

std::shared_ptr<KivResourceCache> KivResourceCache::open(const KivResourceCacheOptions& options,
                                                         std::optional<kiv::Error>* error) {
  auto storage =
      kiv::storage::Storage::open(options.rootPath, options.archiveLimits).reportTo(error);
  if (!storage) return nullptr;
  auto place =
      kiv::CachePlace::open({*std::move(storage), absolutePath(options.packagedResourcesPath),
                             options.lookupRoots, serversOf(options)});
  auto manager = KivResourceManager::newInstanceInPlace(place, loaderFor(options));
  return std::shared_ptr<KivResourceCache>(
      new KivResourceCache(std::move(place), std::move(manager)));
}

std::shared_ptr<KivResourceCache> KivResourceCache::sharedInstance() {
  // Never destroyed, as the manager of the process.
  static auto& instance =
      *new std::shared_ptr<KivResourceCache>(new KivResourceCache(nullptr, nullptr));
  return instance;
}

KivResourceCache::KivResourceCache(std::shared_ptr<const kiv::CachePlace> place,
                                   std::shared_ptr<KivResourceManager> manager)
    : place_(std::move(place)), manager_(std::move(manager)) {}

KivResourceCache::~KivResourceCache() = default;

std::string KivResourceCache::rootPath() const {
  const kiv::CacheInUse use(place_.get());
  return KivStorageService::rootPath();
}

std::shared_ptr<KivAppConfiguration> KivResourceCache::appConfiguration() const {
  return place_ ? place_->servers : KivAppConfiguration::sharedInstance();
}

std::shared_ptr<KivResourceManager> KivResourceCache::manager() const {
  return manager_ ? manager_ : KivResourceManager::sharedInstance();
}

void KivResourceCache::perform(const std::function<void()>& work) const {
  const kiv::CacheInUse use(place_.get());
  work();
}
